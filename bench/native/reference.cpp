// What the module is held against: bare library calls that do the same work and nothing else, and
// the measures of a process. Written apart from the module on purpose.

// Xlib's macros break the headers of the engine that come after them.
// clang-format off
#include <nan.h>
// clang-format on

#include <X11/extensions/XInput2.h>
#include <X11/extensions/scrnsaver.h>
#include <gdk/gdkx.h>
#include <gtk/gtk.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace {

using Info = const Nan::FunctionCallbackInfo<v8::Value>&;

double Number(Info info, int index) { return Nan::To<double>(info[index]).FromJust(); }
bool Flag(Info info, int index) { return Nan::To<bool>(info[index]).FromJust(); }

void Return(Info info, double first, double second) {
  const auto pair = Nan::New<v8::Array>(2);
  Nan::Set(pair, 0, Nan::New(first)).Check();
  Nan::Set(pair, 1, Nan::New(second)).Check();
  info.GetReturnValue().Set(pair);
}

double Milliseconds(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// --- A snapshot: the same calls with the same options, into a buffer reserved beforehand.

struct Sink {
  std::vector<char> bytes;
  size_t used = 0;
};
Sink image;
Sink thumbnail;

gboolean Write(const char* bytes, size_t count, GError** /*error*/, void* data) {
  auto* sink = static_cast<Sink*>(data);
  if (sink->used + count > sink->bytes.size()) return FALSE;
  std::memcpy(sink->bytes.data() + sink->used, bytes, count);
  sink->used += count;
  return TRUE;
}

void Save(GdkPixbuf* pixbuf, bool jpeg, const char* quality, Sink* sink) {
  sink->used = 0;
  gdk_pixbuf_save_to_callback(pixbuf, Write, sink, jpeg ? "jpeg" : "png", nullptr,
                              jpeg ? "quality" : nullptr, quality, nullptr);
}

// reserve(bytes): room for one picture and one thumbnail, touched so that it is really there.
void Reserve(Info info) {
  image.bytes.assign(static_cast<size_t>(Number(info, 0)), 1);
  thumbnail.bytes.assign(size_t{1} << 20, 1);
}

// Encoded bytes of the picture, fitted into 1920 x 1080, which is released.
double Encode(GdkPixbuf* picture, bool jpeg) {
  const bool reduced = gdk_pixbuf_get_width(picture) > 1920;
  if (reduced) {
    GdkPixbuf* fitted = gdk_pixbuf_scale_simple(picture, 1920, 1080, GDK_INTERP_BILINEAR);
    // The module holds the captured picture until its encoding is done, too.
    g_object_set_data_full(G_OBJECT(fitted), "source", picture, g_object_unref);
    picture = fitted;
  }
  GdkPixbuf* small = gdk_pixbuf_scale_simple(picture, 620, 320, GDK_INTERP_BILINEAR);
  Save(picture, jpeg, reduced ? "50" : "25", &image);
  Save(small, jpeg, reduced ? "50" : "25", &thumbnail);
  g_object_unref(small);
  g_object_unref(picture);
  return static_cast<double>(image.used);
}

GdkPixbuf* Screen() {
  GdkWindow* root = gdk_get_default_root_window();
  return gdk_pixbuf_get_from_window(root, 0, 0, gdk_window_get_width(root),
                                    gdk_window_get_height(root));
}

// desktop(jpeg): encoded bytes of the whole desktop.
void Desktop(Info info) { info.GetReturnValue().Set(Encode(Screen(), Flag(info, 0))); }

// compositor(jpeg): the same through GNOME Shell's service.
void Compositor(Info info) {
  const std::string path = std::string(g_get_tmp_dir()) + "/reference";
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  GVariant* reply = g_dbus_connection_call_sync(
      bus, "org.gnome.Shell.Screenshot", "/org/gnome/Shell/Screenshot",
      "org.gnome.Shell.Screenshot", "Screenshot", g_variant_new("(bbs)", FALSE, TRUE, path.c_str()),
      nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  g_object_unref(bus);
  if (!reply) return Nan::ThrowError("no answer");
  g_variant_unref(reply);
  GdkPixbuf* picture = gdk_pixbuf_new_from_file(path.c_str(), nullptr);
  unlink(path.c_str());
  info.GetReturnValue().Set(Encode(picture, Flag(info, 0)));
}

// --- Input and idle time.

Display* counter = nullptr;
int opcode = 0;
double counted = 0;
uv_poll_t* poll_handle = nullptr;

void OnReadable(uv_poll_t* /*handle*/, int /*status*/, int /*events*/) {
  while (XPending(counter) > 0) {
    XEvent event;
    XNextEvent(counter, &event);
    XGenericEventCookie* cookie = &event.xcookie;
    if (cookie->type != GenericEvent || cookie->extension != opcode) continue;
    if (!XGetEventData(counter, cookie)) continue;
    if (cookie->evtype == XI_RawKeyPress || cookie->evtype == XI_RawButtonPress) ++counted;
    XFreeEventData(counter, cookie);
  }
}

// startCounting(): a connection with raw key and button events of the first master devices.
void StartCounting(Info /*info*/) {
  counter = XOpenDisplay(nullptr);
  if (!counter) return Nan::ThrowError("no display");
  int first_event = 0;
  int first_error = 0;
  XQueryExtension(counter, "XInputExtension", &opcode, &first_event, &first_error);
  int count = 0;
  XIDeviceInfo* devices = XIQueryDevice(counter, XIAllMasterDevices, &count);
  for (int i = 0; i < count && i < 2; ++i) {
    const bool pointer = devices[i].use == XIMasterPointer;
    std::array<unsigned char, XIMaskLen(XI_LASTEVENT)> bits{};
    XISetMask(bits.data(), pointer ? XI_RawButtonPress : XI_RawKeyPress);
    XISetMask(bits.data(), pointer ? XI_RawButtonRelease : XI_RawKeyRelease);
    XIEventMask mask = {devices[i].deviceid, static_cast<int>(bits.size()), bits.data()};
    XISelectEvents(counter, DefaultRootWindow(counter), &mask, 1);
  }
  XIFreeDeviceInfo(devices);
  XSync(counter, False);
  poll_handle = new uv_poll_t;
  uv_poll_init(Nan::GetCurrentEventLoop(), poll_handle, ConnectionNumber(counter));
  uv_poll_start(poll_handle, UV_READABLE, OnReadable);
}

void StopCounting(Info /*info*/) {
  uv_close(reinterpret_cast<uv_handle_t*>(poll_handle),
           [](uv_handle_t* handle) { delete reinterpret_cast<uv_poll_t*>(handle); });
  XCloseDisplay(counter);
}

// counted(): presses of keys and buttons, ever.
void Counted(Info info) { info.GetReturnValue().Set(counted); }

// inputInfo(): idle time from GDK's connection in an object like the module's.
void InputInfo(Info info) {
  const auto set = [](v8::Local<v8::Object> object, const char* key, v8::Local<v8::Value> value) {
    Nan::Set(object, Nan::New(key).ToLocalChecked(), value).Check();
  };
  XScreenSaverInfo state{};
  Display* display = GDK_DISPLAY_XDISPLAY(gdk_display_get_default());
  XScreenSaverQueryInfo(display, DefaultRootWindow(display), &state);
  const auto last = Nan::New<v8::Object>();
  for (const char* key : {"input", "keyPress", "mouseClick", "mouseMove"}) {
    set(last, key, Nan::New(static_cast<double>(state.idle)));
  }
  const auto result = Nan::New<v8::Object>();
  set(result, "last", last);
  set(result, "keyboardActivity", Nan::New(counted));
  set(result, "mouseActivity", Nan::New(counted));
  info.GetReturnValue().Set(result);
}

// --- A step of the selection's pointer, and what it draws: both in the module's own overlay.

GdkWindow* overlay = nullptr;
GtkWidget* overlay_widget = nullptr;
cairo_surface_t* pictures[3] = {};  // undimmed, dimmed, shown

void Sync() { XSync(GDK_DISPLAY_XDISPLAY(gdk_display_get_default()), False); }

// prepare(): finds the overlay, and puts pictures of its size onto the server.
void Prepare(Info info) {
  GList* all = gtk_window_list_toplevels();
  for (GList* item = all; item; item = item->next) {
    if (gtk_widget_get_mapped(GTK_WIDGET(item->data))) overlay_widget = GTK_WIDGET(item->data);
  }
  g_list_free(all);
  if (!overlay_widget) return Nan::ThrowError("no overlay");
  overlay = gtk_widget_get_window(overlay_widget);
  GdkPixbuf* screen = Screen();
  for (cairo_surface_t*& picture : pictures) {
    if (picture) cairo_surface_destroy(picture);
    picture = gdk_window_create_similar_surface(overlay, CAIRO_CONTENT_COLOR,
                                                gdk_window_get_width(overlay),
                                                gdk_window_get_height(overlay));
    cairo_t* cr = cairo_create(picture);
    gdk_cairo_set_source_pixbuf(cr, screen, 0, 0);
    cairo_paint(cr);
    cairo_destroy(cr);
  }
  g_object_unref(screen);
}

void Draw(double x, double y) {
  const double dash = 4.0;
  const GdkRectangle whole = {0, 0, gdk_window_get_width(overlay), gdk_window_get_height(overlay)};
  cairo_t* cr = cairo_create(pictures[2]);
  cairo_set_source_surface(cr, pictures[1], 0, 0);
  cairo_paint(cr);
  cairo_set_dash(cr, &dash, 1, 0);
  cairo_set_line_width(cr, 1);
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_move_to(cr, x + 0.5, 0);
  cairo_line_to(cr, x + 0.5, whole.height);
  cairo_move_to(cr, 0, y + 0.5);
  cairo_line_to(cr, whole.width, y + 0.5);
  cairo_stroke(cr);
  cairo_set_source_surface(cr, pictures[0], 0, 0);
  cairo_rectangle(cr, whole.width / 8.0, whole.height / 8.0, x - whole.width / 8.0,
                  y - whole.height / 8.0);
  cairo_fill(cr);
  cairo_destroy(cr);
  gdk_window_begin_paint_rect(overlay, &whole);
  cr = gdk_cairo_create(overlay);
  cairo_set_source_surface(cr, pictures[2], 0, 0);
  cairo_paint(cr);
  cairo_destroy(cr);
  gdk_window_end_paint(overlay);
}

void Send(GdkEventType type, double x, double y) {
  GdkEvent* event = gdk_event_new(type);
  event->any.window = GDK_WINDOW(g_object_ref(overlay));
  gdk_event_set_device(event, gdk_device_manager_get_client_pointer(
                                  gdk_display_get_device_manager(gdk_display_get_default())));
  // Both kinds begin alike.
  event->motion.x = x;
  event->motion.y = y;
  if (type == GDK_BUTTON_PRESS) event->button.button = 1;
  gtk_widget_event(overlay_widget, event);
  gdk_event_free(event);
  gdk_window_process_updates(overlay, TRUE);
}

// press(x, y)
void Press(Info info) { Send(GDK_BUTTON_PRESS, Number(info, 0), Number(info, 1)); }

// step(x, y, bare): milliseconds from the pointer's event to the repainted window, and this
// thread's own of it; `bare` only draws.
void Step(Info info) {
  const double x = Number(info, 0);
  const double y = Number(info, 1);
  const bool draws = Flag(info, 2);
  Sync();
  const double start = Milliseconds(CLOCK_MONOTONIC);
  const double own = Milliseconds(CLOCK_THREAD_CPUTIME_ID);
  if (draws) {
    Draw(x, y);
  } else {
    Send(GDK_MOTION_NOTIFY, x, y);
  }
  Sync();
  Return(info, Milliseconds(CLOCK_MONOTONIC) - start, Milliseconds(CLOCK_THREAD_CPUTIME_ID) - own);
}

// --- The process.

// Every GObject runs through GObject's own constructor and finalizer, which classes that are
// initialised later inherit or chain up to. Builds of GLib that count by themselves are rare.
struct Census {
  std::mutex mutex;
  std::map<GType, int> instances;
  GObject* (*constructor)(GType, guint, GObjectConstructParam*) = nullptr;
  void (*finalize)(GObject*) = nullptr;
};
Census* census = nullptr;

void Note(GType type, int change) {
  const std::lock_guard<std::mutex> lock(census->mutex);
  census->instances[type] += change;
}

// countObjects(): from now on. To be called before GTK is initialised.
void CountObjects(Info /*info*/) {
  census = new Census;
  auto* root = static_cast<GObjectClass*>(g_type_class_ref(G_TYPE_OBJECT));
  census->constructor = root->constructor;
  census->finalize = root->finalize;
  root->constructor = [](GType type, guint count, GObjectConstructParam* parameters) {
    GObject* object = census->constructor(type, count, parameters);
    Note(type, 1);
    return object;
  };
  root->finalize = [](GObject* object) {
    Note(G_OBJECT_TYPE(object), -1);
    census->finalize(object);
  };
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
  const struct mallinfo2 all = mallinfo2();
  info.GetReturnValue().Set(static_cast<double>(all.uordblks) + static_cast<double>(all.hblkhd));
}

// handles(): those of the loop, whatever their state.
void Handles(Info info) {
  int count = 0;
  uv_walk(
      Nan::GetCurrentEventLoop(), [](uv_handle_t*, void* data) { ++*static_cast<int*>(data); },
      &count);
  info.GetReturnValue().Set(count);
}

// processor(): milliseconds of this thread.
void Processor(Info info) { info.GetReturnValue().Set(Milliseconds(CLOCK_THREAD_CPUTIME_ID)); }

struct Moment {
  double clock = 0;
  double processor = 0;
};
uv_prepare_t turn_end;
Moment turn;
Moment longest;

// Idle time is left out of the clock's, where the runtime counts it.
Moment Now() {
  double idle = 0;
#if UV_VERSION_HEX >= 0x012700
  idle = static_cast<double>(uv_metrics_idle_time(Nan::GetCurrentEventLoop())) / 1e6;
#endif
  return {Milliseconds(CLOCK_MONOTONIC) - idle, Milliseconds(CLOCK_THREAD_CPUTIME_ID)};
}

// watchTurns(): the runtime has to count the loop's idle time.
void WatchTurns(Info /*info*/) {
  turn = Now();
  uv_prepare_init(Nan::GetCurrentEventLoop(), &turn_end);
  uv_prepare_start(&turn_end, [](uv_prepare_t* /*handle*/) {
    const Moment now = Now();
    longest.clock = std::max(longest.clock, now.clock - turn.clock);
    longest.processor = std::max(longest.processor, now.processor - turn.processor);
    turn = now;
  });
  uv_unref(reinterpret_cast<uv_handle_t*>(&turn_end));
}

// turns(): milliseconds of the longest one since last called, on the clock without its wait and of
// the thread's processor time.
void Turns(Info info) {
  Return(info, longest.clock, longest.processor);
  longest = {};
}

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  const std::map<const char*, Nan::FunctionCallback> functions = {{"reserve", Reserve},
                                                                  {"desktop", Desktop},
                                                                  {"compositor", Compositor},
                                                                  {"startCounting", StartCounting},
                                                                  {"stopCounting", StopCounting},
                                                                  {"counted", Counted},
                                                                  {"inputInfo", InputInfo},
                                                                  {"prepare", Prepare},
                                                                  {"press", Press},
                                                                  {"step", Step},
                                                                  {"countObjects", CountObjects},
                                                                  {"objects", Objects},
                                                                  {"allocated", Allocated},
                                                                  {"handles", Handles},
                                                                  {"processor", Processor},
                                                                  {"watchTurns", WatchTurns},
                                                                  {"turns", Turns}};
  for (const auto& [name, function] : functions) Nan::SetMethod(exports, name, function);
}

}  // namespace

NODE_MODULE(bench_reference, Setup)
