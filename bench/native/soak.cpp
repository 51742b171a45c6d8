// What the soak needs of native code: a person's input in bulk, how long each turn of the loop is
// busy, how many GObjects there are, and a bare listener on the bus as a reference.

// Xlib's macros break the headers of the engine that come after them.
// clang-format off
#include <nan.h>
// clang-format on

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <gio/gio.h>
#include <malloc.h>

#include <algorithm>
#include <ctime>
#include <map>
#include <mutex>

namespace {

using Info = const Nan::FunctionCallbackInfo<v8::Value>&;

double Milliseconds(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

int Int(Info info, int index) { return Nan::To<int>(info[index]).FromJust(); }

// Every GObject runs through GObject's own constructor and finalizer, which classes that are
// initialised later inherit or chain up to. Builds of GLib that count by themselves are rare.
struct Census {
  std::mutex mutex;
  std::map<GType, int> instances;
  GObject* (*constructor)(GType, guint, GObjectConstructParam*) = nullptr;
  void (*finalize)(GObject*) = nullptr;
};
Census* census = nullptr;

GObject* CountedConstructor(GType type, guint count, GObjectConstructParam* parameters) {
  GObject* object = census->constructor(type, count, parameters);
  const std::lock_guard<std::mutex> lock(census->mutex);
  ++census->instances[type];
  return object;
}

void CountedFinalize(GObject* object) {
  {
    const std::lock_guard<std::mutex> lock(census->mutex);
    --census->instances[G_OBJECT_TYPE(object)];
  }
  census->finalize(object);
}

// countObjects(): from now on. To be called before GTK is initialised.
void CountObjects(Info /*info*/) {
  census = new Census;
  auto* root = static_cast<GObjectClass*>(g_type_class_ref(G_TYPE_OBJECT));
  census->constructor = root->constructor;
  census->finalize = root->finalize;
  root->constructor = CountedConstructor;
  root->finalize = CountedFinalize;
}

// objects(): the living instances of every type.
void Objects(Info info) {
  const auto result = Nan::New<v8::Object>();
  const std::lock_guard<std::mutex> lock(census->mutex);
  for (const auto& [type, count] : census->instances) {
    if (count == 0) continue;
    Nan::Set(result, Nan::New(g_type_name(type)).ToLocalChecked(), Nan::New(count)).Check();
  }
  info.GetReturnValue().Set(result);
}

// allocated(): bytes that malloc has given out.
void Allocated(Info info) {
#if __GLIBC_PREREQ(2, 33)
  const struct mallinfo2 all = mallinfo2();
#else
  const struct mallinfo all = mallinfo();
#endif
  info.GetReturnValue().Set(static_cast<double>(all.uordblks) + static_cast<double>(all.hblkhd));
}

uv_prepare_t turn_end;
double turn_clock = 0;
double turn_idle = 0;
double turn_processor = 0;
double longest_busy = 0;
double longest_processor = 0;

double IdleMilliseconds() {
#if UV_VERSION_HEX >= 0x012700
  return static_cast<double>(uv_metrics_idle_time(Nan::GetCurrentEventLoop())) / 1e6;
#else
  return 0;
#endif
}

// From one turn's wait to the next one's.
void OnTurn(uv_prepare_t* /*handle*/) {
  const double clock = Milliseconds(CLOCK_MONOTONIC);
  const double idle = IdleMilliseconds();
  const double processor = Milliseconds(CLOCK_THREAD_CPUTIME_ID);
  longest_busy = std::max(longest_busy, clock - turn_clock - (idle - turn_idle));
  longest_processor = std::max(longest_processor, processor - turn_processor);
  turn_clock = clock;
  turn_idle = idle;
  turn_processor = processor;
}

void ForgetTurns() { longest_busy = longest_processor = 0; }

// watchTurns(): the runtime has to count the loop's idle time, which older ones cannot.
void WatchTurns(Info /*info*/) {
  uv_prepare_init(Nan::GetCurrentEventLoop(), &turn_end);
  uv_prepare_start(&turn_end, OnTurn);
  uv_unref(reinterpret_cast<uv_handle_t*>(&turn_end));
  OnTurn(nullptr);
  ForgetTurns();
}

// turns(): milliseconds of the longest one since last called, on the clock without its wait and of
// the thread's processor time.
void Turns(Info info) {
  const auto result = Nan::New<v8::Array>();
  Nan::Set(result, 0, Nan::New(longest_busy)).Check();
  Nan::Set(result, 1, Nan::New(longest_processor)).Check();
  ForgetTurns();
  info.GetReturnValue().Set(result);
}

// processor(): milliseconds of this thread.
void Processor(Info info) { info.GetReturnValue().Set(Milliseconds(CLOCK_THREAD_CPUTIME_ID)); }

// handles(): those of the loop, whatever their state.
void Handles(Info info) {
  int count = 0;
  uv_walk(
      Nan::GetCurrentEventLoop(), [](uv_handle_t*, void* data) { ++*static_cast<int*>(data); },
      &count);
  info.GetReturnValue().Set(count);
}

Display* person = nullptr;

void Connect(Info info) {
  person = XOpenDisplay(*Nan::Utf8String(info[0]));
  if (!person) return Nan::ThrowError("no display");
}

// act(rounds, x, y): each is 20 events: four keys, ten steps around that point and a click. Returns
// when the server has handled them all.
void Act(Info info) {
  constexpr unsigned kFirstKey = 38;
  constexpr unsigned kKeys = 6;
  const int x = Int(info, 1);
  const int y = Int(info, 2);
  for (int round = 0, rounds = Int(info, 0); round < rounds; ++round) {
    for (unsigned i = 0; i < 4; ++i) {
      const unsigned key = kFirstKey + (static_cast<unsigned>(round) + i) % kKeys;
      XTestFakeKeyEvent(person, key, True, CurrentTime);
      XTestFakeKeyEvent(person, key, False, CurrentTime);
    }
    for (int i = 0; i < 10; ++i) XTestFakeMotionEvent(person, -1, x + i, y + round % 10, 0);
    const unsigned button = 1 + static_cast<unsigned>(round) % 3;
    XTestFakeButtonEvent(person, button, True, CurrentTime);
    XTestFakeButtonEvent(person, button, False, CurrentTime);
  }
  XSync(person, False);
}

int signals = 0;

// listen(address, path): to lock signals, on a connection of its own.
void Listen(Info info) {
  const auto flags =
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  static GDBusConnection* bus = g_dbus_connection_new_for_address_sync(
      *Nan::Utf8String(info[0]), flags, nullptr, nullptr, nullptr);
  if (!bus) return Nan::ThrowError("no bus");
  g_dbus_connection_signal_subscribe(
      bus, nullptr, "org.gnome.ScreenSaver", "ActiveChanged", *Nan::Utf8String(info[1]), nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*, void*) {
        ++signals;
      },
      nullptr, nullptr);
}

void Heard(Info info) { info.GetReturnValue().Set(signals); }

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  Nan::SetMethod(exports, "countObjects", CountObjects);
  Nan::SetMethod(exports, "objects", Objects);
  Nan::SetMethod(exports, "allocated", Allocated);
  Nan::SetMethod(exports, "watchTurns", WatchTurns);
  Nan::SetMethod(exports, "turns", Turns);
  Nan::SetMethod(exports, "processor", Processor);
  Nan::SetMethod(exports, "handles", Handles);
  Nan::SetMethod(exports, "connect", Connect);
  Nan::SetMethod(exports, "act", Act);
  Nan::SetMethod(exports, "listen", Listen);
  Nan::SetMethod(exports, "heard", Heard);
}

}  // namespace

NODE_MODULE(bench_soak, Setup)
