// The least that counting input, asking for idle time and hearing a signal can cost: bare library
// calls and nothing else. Written apart from the module on purpose. Also feeds input to both and
// times the event loop's turns.

// Xlib's macros break the headers of the engine that come after them.
// clang-format off
#include <nan.h>
// clang-format on

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/scrnsaver.h>
#include <gio/gio.h>
#include <time.h>
#include <uv.h>

#include <algorithm>
#include <array>

namespace {

using Info = const Nan::FunctionCallbackInfo<v8::Value>&;

Display* counter = nullptr;
Display* feeder = nullptr;
int opcode = 0;
double key_presses = 0;
double button_presses = 0;
uv_poll_t* poll_handle = nullptr;

uv_prepare_t prepare;
uv_check_t check;
// Milliseconds on the clock, and of processor time: other programs take their share of the machine.
struct Times {
  double clock = 0;
  double processor = 0;
};
// Waking up for nothing takes less than this.
constexpr double kEmptyTurn = 0.1;
Times turn_began;
Times turn_last;
Times turns_longest;
double turns_total = 0;
double longest_reading = 0;

double signals = 0;
double signal_time = 0;

Times Now() {
  timespec used{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  return {static_cast<double>(uv_hrtime()) / 1e6,
          static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6};
}

// Reading takes all that the server has sent into Xlib's queue, and what it sends meanwhile.
int Pending() {
  if (QLength(counter) > 0) return QLength(counter);
  const double began = Now().processor;
  const int count = XPending(counter);
  longest_reading = std::max(longest_reading, Now().processor - began);
  return count;
}

void OnReadable(uv_poll_t* /*handle*/, int /*status*/, int /*events*/) {
  while (Pending() > 0) {
    XEvent event;
    XNextEvent(counter, &event);
    XGenericEventCookie* cookie = &event.xcookie;
    if (cookie->type != GenericEvent || cookie->extension != opcode) continue;
    if (!XGetEventData(counter, cookie)) continue;
    if (cookie->evtype == XI_RawKeyPress) ++key_presses;
    if (cookie->evtype == XI_RawButtonPress) ++button_presses;
    XFreeEventData(counter, cookie);
  }
}

int MasterDevice(int use) {
  int count = 0;
  XIDeviceInfo* devices = XIQueryDevice(counter, XIAllMasterDevices, &count);
  int id = XIAllMasterDevices;
  for (int i = count - 1; i >= 0; --i) {
    if (devices[i].use == use) id = devices[i].deviceid;
  }
  XIFreeDeviceInfo(devices);
  return id;
}

// startCounting(): a connection with raw key and button events of the first master devices.
void StartCounting(Info /*info*/) {
  counter = XOpenDisplay(nullptr);
  if (!counter) return Nan::ThrowError("no display");
  int first_event = 0;
  int first_error = 0;
  XQueryExtension(counter, "XInputExtension", &opcode, &first_event, &first_error);
  std::array<unsigned char, XIMaskLen(XI_LASTEVENT)> bits{};
  XIEventMask mask = {MasterDevice(XIMasterKeyboard), static_cast<int>(bits.size()), bits.data()};
  XISetMask(bits.data(), XI_RawKeyPress);
  XISetMask(bits.data(), XI_RawKeyRelease);
  XISelectEvents(counter, DefaultRootWindow(counter), &mask, 1);
  XISetMask(bits.data(), XI_RawButtonPress);
  XISetMask(bits.data(), XI_RawButtonRelease);
  mask.deviceid = MasterDevice(XIMasterPointer);
  XISelectEvents(counter, DefaultRootWindow(counter), &mask, 1);
  XSync(counter, False);
  poll_handle = new uv_poll_t;
  uv_poll_init(Nan::GetCurrentEventLoop(), poll_handle, ConnectionNumber(counter));
  uv_poll_start(poll_handle, UV_READABLE, OnReadable);
}

void StopCounting(Info /*info*/) {
  uv_close(reinterpret_cast<uv_handle_t*>(poll_handle),
           [](uv_handle_t* handle) { delete reinterpret_cast<uv_poll_t*>(handle); });
  XCloseDisplay(counter);
  counter = nullptr;
}

void KeyPresses(Info info) { info.GetReturnValue().Set(key_presses); }

// feed(presses, keycode): that many presses and releases, as fast as the server takes them. Returns
// when the server has handled them all.
void Feed(Info info) {
  if (!feeder && !(feeder = XOpenDisplay(nullptr))) return Nan::ThrowError("no display");
  const int presses = Nan::To<int>(info[0]).FromJust();
  const auto keycode = static_cast<unsigned>(Nan::To<int>(info[1]).FromJust());
  for (int i = 0; i < presses; ++i) {
    XTestFakeKeyEvent(feeder, keycode, True, CurrentTime);
    XTestFakeKeyEvent(feeder, keycode, False, CurrentTime);
  }
  XSync(feeder, False);
}

// idle(): milliseconds, from the feeder's connection.
void Idle(Info info) {
  XScreenSaverInfo state{};
  XScreenSaverQueryInfo(feeder, DefaultRootWindow(feeder), &state);
  info.GetReturnValue().Set(static_cast<double>(state.idle));
}

// object(): what a reading of the input looks like to JavaScript.
void Object(Info info) {
  const auto set = [](v8::Local<v8::Object> object, const char* key, v8::Local<v8::Value> value) {
    Nan::Set(object, Nan::New(key).ToLocalChecked(), value).Check();
  };
  const auto last = Nan::New<v8::Object>();
  for (const char* key : {"input", "keyPress", "mouseClick", "mouseMove"}) {
    set(last, key, Nan::New(-1.0));
  }
  const auto result = Nan::New<v8::Object>();
  set(result, "last", last);
  set(result, "keyboardActivity", Nan::New(key_presses));
  set(result, "mouseActivity", Nan::New(button_presses));
  info.GetReturnValue().Set(result);
}

// timeTurns(): from now on the time that each turn spends in its descriptors' callbacks is taken.
// The clock's part includes the wait for them.
void TimeTurns(Info /*info*/) {
  uv_loop_t* loop = Nan::GetCurrentEventLoop();
  uv_prepare_init(loop, &prepare);
  uv_check_init(loop, &check);
  uv_prepare_start(&prepare, [](uv_prepare_t* /*handle*/) { turn_began = Now(); });
  uv_check_start(&check, [](uv_check_t* /*handle*/) {
    const Times now = Now();
    turn_last = {now.clock - turn_began.clock, now.processor - turn_began.processor};
    if (turn_last.processor > kEmptyTurn) turns_total += turn_last.processor;
    turns_longest.clock = std::max(turns_longest.clock, turn_last.clock);
    turns_longest.processor = std::max(turns_longest.processor, turn_last.processor);
  });
  uv_unref(reinterpret_cast<uv_handle_t*>(&prepare));
  uv_unref(reinterpret_cast<uv_handle_t*>(&check));
}

// longestReading(): processor milliseconds of one XPending of the bare loop, since last called.
void LongestReading(Info info) {
  info.GetReturnValue().Set(longest_reading);
  longest_reading = 0;
}

// turns(): since it was last called, [processor time of all but empty ones, the longest's, the
// longest's clock].
void Turns(Info info) {
  const auto result = Nan::New<v8::Array>(3);
  Nan::Set(result, 0, Nan::New(turns_total)).Check();
  Nan::Set(result, 1, Nan::New(turns_longest.processor)).Check();
  Nan::Set(result, 2, Nan::New(turns_longest.clock)).Check();
  turns_total = 0;
  turns_longest = {};
  info.GetReturnValue().Set(result);
}

void OnSignal(GDBusConnection* /*connection*/, const char* /*sender*/, const char* /*path*/,
              const char* /*interface*/, const char* /*member*/, GVariant* parameters,
              void* /*data*/) {
  gboolean active = FALSE;
  g_variant_get(parameters, "(b)", &active);
  signal_time = static_cast<double>(uv_hrtime()) / 1e6;
  ++signals;
}

// subscribe(path): a lock signal on the process's own connection.
void Subscribe(Info info) {
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  g_dbus_connection_signal_subscribe(bus, nullptr, "org.gnome.ScreenSaver", "ActiveChanged",
                                     *Nan::Utf8String(info[0]), nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
                                     OnSignal, nullptr, nullptr);
}

void Signals(Info info) { info.GetReturnValue().Set(signals); }
void SignalTime(Info info) { info.GetReturnValue().Set(signal_time); }

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  Nan::SetMethod(exports, "startCounting", StartCounting);
  Nan::SetMethod(exports, "stopCounting", StopCounting);
  Nan::SetMethod(exports, "keyPresses", KeyPresses);
  Nan::SetMethod(exports, "feed", Feed);
  Nan::SetMethod(exports, "idle", Idle);
  Nan::SetMethod(exports, "object", Object);
  Nan::SetMethod(exports, "timeTurns", TimeTurns);
  Nan::SetMethod(exports, "turns", Turns);
  Nan::SetMethod(exports, "longestReading", LongestReading);
  Nan::SetMethod(exports, "subscribe", Subscribe);
  Nan::SetMethod(exports, "signals", Signals);
  Nan::SetMethod(exports, "signalTime", SignalTime);
}

}  // namespace

NODE_MODULE(bench_input, Setup)
