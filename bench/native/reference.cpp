// The benchmarks' reference: bare library calls that do the same work and nothing else, and
// measurements of a process. Shares no code with the module on purpose.

// Xlib's macros break the engine's headers, so include those first.
// clang-format off
#include <nan.h>
// clang-format on

#include <X11/extensions/XInput2.h>
#include <X11/extensions/scrnsaver.h>
#include <fcntl.h>
#include <gdk/gdkx.h>
#include <gio/gunixfdlist.h>
#include <gtk/gtk.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace {

using Info = const Nan::FunctionCallbackInfo<v8::Value>&;

double Number(Info info, int index) { return Nan::To<double>(info[index]).FromJust(); }
bool Flag(Info info, int index) { return Nan::To<bool>(info[index]).FromJust(); }

// Processor milliseconds of this thread.
double Now() {
  timespec now = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// --- Snapshot: the same calls with the same options.

// Keep their capacity from one picture to the next.
std::vector<char> image;
std::vector<char> thumbnail;

gboolean Append(const char* bytes, size_t count, GError** /*error*/, void* data) {
  auto* sink = static_cast<std::vector<char>*>(data);
  sink->insert(sink->end(), bytes, bytes + count);
  return TRUE;
}

void Save(GdkPixbuf* pixbuf, bool jpeg, const char* quality, std::vector<char>* sink) {
  sink->clear();
  gdk_pixbuf_save_to_callback(pixbuf, Append, sink, jpeg ? "jpeg" : "png", nullptr,
                              jpeg ? "quality" : nullptr, quality, nullptr);
}

// Encodes the picture, scaled down to fit 1920 x 1080, and releases it.
void Encode(GdkPixbuf* picture, bool jpeg) {
  const bool reduced = gdk_pixbuf_get_width(picture) > 1920;
  if (reduced) {
    GdkPixbuf* fitted = gdk_pixbuf_scale_simple(picture, 1920, 1080, GDK_INTERP_BILINEAR);
    // The module also holds the captured picture until it is encoded.
    g_object_set_data_full(G_OBJECT(fitted), "source", picture, g_object_unref);
    picture = fitted;
  }
  GdkPixbuf* small = gdk_pixbuf_scale_simple(picture, 620, 320, GDK_INTERP_BILINEAR);
  Save(picture, jpeg, reduced ? "50" : "25", &image);
  Save(small, jpeg, reduced ? "50" : "25", &thumbnail);
  g_object_unref(small);
  g_object_unref(picture);
}

GdkPixbuf* Screen() {
  GdkWindow* root = gdk_get_default_root_window();
  return gdk_pixbuf_get_from_window(root, 0, 0, gdk_window_get_width(root),
                                    gdk_window_get_height(root));
}

// desktop(jpeg)
void Desktop(Info info) { Encode(Screen(), Flag(info, 0)); }

struct Service {
  const char* name;
  const char* path;
  const char* interface;
};
constexpr Service kGnome = {"org.gnome.Shell.Screenshot", "/org/gnome/Shell/Screenshot",
                            "org.gnome.Shell.Screenshot"};
constexpr Service kKwin = {"org.kde.KWin", "/Screenshot", "org.kde.kwin.Screenshot"};
constexpr Service kScreenShot2 = {"org.kde.KWin", "/org/kde/KWin/ScreenShot2",
                                  "org.kde.KWin.ScreenShot2"};
constexpr Service kPortal = {"org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
                             "org.freedesktop.portal.Screenshot"};

GVariant* Call(GDBusConnection* bus, const Service& service, const char* method,
               GVariant* parameters, GUnixFDList* descriptors = nullptr) {
  return g_dbus_connection_call_with_unix_fd_list_sync(
      bus, service.name, service.path, service.interface, method, parameters, nullptr,
      G_DBUS_CALL_FLAGS_NONE, -1, descriptors, nullptr, nullptr, nullptr);
}

GDBusConnection* SessionBus() { return g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr); }

GVariant* NoOptions() { return g_variant_new_array(G_VARIANT_TYPE("{sv}"), nullptr, 0); }

uint32_t Entry(GVariant* dictionary, const char* key) {
  guint32 value = 0;
  g_variant_lookup(dictionary, key, "u", &value);
  return value;
}

// compositor(jpeg): the same through GNOME Shell's service.
void Compositor(Info info) {
  const std::string path = std::string(g_get_tmp_dir()) + "/reference";
  GDBusConnection* bus = SessionBus();
  GVariant* reply =
      Call(bus, kGnome, "Screenshot", g_variant_new("(bbs)", FALSE, TRUE, path.c_str()));
  g_object_unref(bus);
  if (!reply) return Nan::ThrowError("no answer");
  g_variant_unref(reply);
  GdkPixbuf* picture = gdk_pixbuf_new_from_file(path.c_str(), nullptr);
  unlink(path.c_str());
  Encode(picture, Flag(info, 0));
}

// refused(gnome): whether GNOME Shell's or KWin's older service refuses, in one call.
void Refused(Info info) {
  GDBusConnection* bus = SessionBus();
  GVariant* reply = Flag(info, 0)
                        ? Call(bus, kGnome, "Screenshot", g_variant_new("(bbs)", FALSE, TRUE, "/x"))
                        : Call(bus, kKwin, "screenshotFullscreen", nullptr);
  info.GetReturnValue().Set(reply == nullptr);
  if (reply) g_variant_unref(reply);
  g_object_unref(bus);
}

// screenshot2(jpeg): the same through KWin's pipe.
void ScreenShot2(Info info) {
  int ends[2] = {};
  if (pipe2(ends, O_CLOEXEC) != 0) return Nan::ThrowError("no pipe");
  GDBusConnection* bus = SessionBus();
  GUnixFDList* descriptors = g_unix_fd_list_new_from_array(&ends[1], 1);
  GVariant* reply = Call(bus, kScreenShot2, "CaptureWorkspace",
                         g_variant_new("(@a{sv}h)", NoOptions(), 0), descriptors);
  g_object_unref(descriptors);
  g_object_unref(bus);
  if (!reply) return Nan::ThrowError("no answer");
  GVariant* shape = g_variant_get_child_value(reply, 0);
  const size_t stride = Entry(shape, "stride");
  const int width = static_cast<int>(Entry(shape, "width"));
  const int height = static_cast<int>(Entry(shape, "height"));
  g_variant_unref(shape);
  g_variant_unref(reply);
  const size_t size = stride * height;
  const auto bytes = std::make_unique_for_overwrite<unsigned char[]>(size);
  size_t filled = 0;
  for (ssize_t count = 1; count > 0 && filled < size; filled += count) {
    count = read(ends[0], bytes.get() + filled, size - filled);
  }
  close(ends[0]);
  GdkPixbuf* picture = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height);
  const ptrdiff_t row = gdk_pixbuf_get_rowstride(picture);
  for (int y = 0; y < height; ++y) {
    const unsigned char* from = bytes.get() + y * stride;
    guchar* to = gdk_pixbuf_get_pixels(picture) + y * row;
    for (int x = 0; x < width; ++x, from += 4, to += 3) {
      to[0] = from[2];
      to[1] = from[1];
      to[2] = from[0];
    }
  }
  Encode(picture, Flag(info, 0));
}

void OnResponse(GDBusConnection* /*bus*/, const char* /*sender*/, const char* /*path*/,
                const char* /*interface*/, const char* /*signal*/, GVariant* response,
                gpointer data) {
  GVariant* results = g_variant_get_child_value(response, 1);
  *static_cast<char**>(data) = nullptr;
  g_variant_lookup(results, "uri", "s", static_cast<char**>(data));
  g_variant_unref(results);
}

// portal(jpeg)
void Portal(Info info) {
  GDBusConnection* bus = SessionBus();
  GMainContext* context = g_main_context_new();
  g_main_context_push_thread_default(context);
  std::string request = g_dbus_connection_get_unique_name(bus) + 1;
  std::replace(request.begin(), request.end(), '.', '_');
  static int count = 0;
  const std::string token = "reference" + std::to_string(++count);
  request = std::string(kPortal.path) + "/request/" + request + "/" + token;
  char waiting = 0;
  char* uri = &waiting;
  const guint id = g_dbus_connection_signal_subscribe(
      bus, kPortal.name, "org.freedesktop.portal.Request", "Response", request.c_str(), nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE, OnResponse, &uri, nullptr);
  GVariantDict options;
  g_variant_dict_init(&options, nullptr);
  g_variant_dict_insert(&options, "handle_token", "s", token.c_str());
  g_variant_dict_insert(&options, "interactive", "b", FALSE);
  GVariant* reply = Call(bus, kPortal, "Screenshot",
                         g_variant_new("(s@a{sv})", "", g_variant_dict_end(&options)));
  while (reply && uri == &waiting) g_main_context_iteration(context, TRUE);
  g_dbus_connection_signal_unsubscribe(bus, id);
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
  g_object_unref(bus);
  if (!reply) return Nan::ThrowError("no answer");
  g_variant_unref(reply);
  if (!uri) return Nan::ThrowError("no picture");
  char* path = g_filename_from_uri(uri, nullptr, nullptr);
  GdkPixbuf* picture = gdk_pixbuf_new_from_file(path, nullptr);
  unlink(path);
  g_free(path);
  g_free(uri);
  Encode(picture, Flag(info, 0));
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

// startCounting(): a connection with raw key and button events of all master devices.
void StartCounting(Info /*info*/) {
  counter = XOpenDisplay(nullptr);
  if (!counter) return Nan::ThrowError("no display");
  int first_event = 0;
  int first_error = 0;
  XQueryExtension(counter, "XInputExtension", &opcode, &first_event, &first_error);
  std::array<unsigned char, XIMaskLen(XI_LASTEVENT)> bits{};
  for (const int type :
       {XI_RawKeyPress, XI_RawKeyRelease, XI_RawButtonPress, XI_RawButtonRelease}) {
    XISetMask(bits.data(), type);
  }
  XIEventMask mask = {XIAllMasterDevices, static_cast<int>(bits.size()), bits.data()};
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
}

// counted(): all presses of keys and buttons so far.
void Counted(Info info) { info.GetReturnValue().Set(counted); }

// idle(): milliseconds, through GDK's connection.
void Idle(Info info) {
  XScreenSaverInfo state{};
  Display* display = GDK_DISPLAY_XDISPLAY(gdk_display_get_default());
  XScreenSaverQueryInfo(display, DefaultRootWindow(display), &state);
  info.GetReturnValue().Set(static_cast<double>(state.idle));
}

// --- One pointer step of the selection and its drawing, both in the module's own overlay.

GdkWindow* overlay = nullptr;
GtkWidget* overlay_widget = nullptr;
cairo_surface_t* pictures[3] = {};  // undimmed, dimmed, shown

void Sync() { XSync(GDK_DISPLAY_XDISPLAY(gdk_display_get_default()), False); }

// prepare(): finds the overlay and uploads pictures of its size to the server.
void Prepare(Info /*info*/) {
  GList* all = gtk_window_list_toplevels();
  for (GList* item = all; item; item = item->next) {
    if (gtk_widget_get_mapped(GTK_WIDGET(item->data))) overlay_widget = GTK_WIDGET(item->data);
  }
  g_list_free(all);
  if (!overlay_widget) return Nan::ThrowError("no overlay");
  overlay = gtk_widget_get_window(overlay_widget);
  GdkPixbuf* screen = Screen();
  for (cairo_surface_t*& picture : pictures) {
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

// draw(x, y): draws what a pointer motion to (x, y) requires, and waits for the server.
void Draw(Info info) {
  const double x = Number(info, 0);
  const double y = Number(info, 1);
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
  Sync();
}

void Send(GdkEventType type, double x, double y) {
  GdkEvent* event = gdk_event_new(type);
  event->any.window = GDK_WINDOW(g_object_ref(overlay));
  gdk_event_set_device(event, gdk_device_manager_get_client_pointer(
                                  gdk_display_get_device_manager(gdk_display_get_default())));
  // Button and motion events start with the same fields.
  event->motion.x = x;
  event->motion.y = y;
  if (type == GDK_BUTTON_PRESS) event->button.button = 1;
  gtk_widget_event(overlay_widget, event);
  gdk_event_free(event);
  gdk_window_process_updates(overlay, TRUE);
  Sync();
}

// press(x, y) and move(x, y): send the overlay a pointer event and wait for its repaint.
void Press(Info info) { Send(GDK_BUTTON_PRESS, Number(info, 0), Number(info, 1)); }
void Move(Info info) { Send(GDK_MOTION_NOTIFY, Number(info, 0), Number(info, 1)); }

// --- The process.

// Every GObject passes through GObject's constructor and finalizer, which classes that are
// initialised later inherit or chain up to. GLib builds that count instances are rare.
struct Census {
  std::mutex mutex;
  std::map<GType, int> instances;
  GObjectClass original = {};
};
Census* census = nullptr;

void Note(GType type, int change) {
  const std::lock_guard<std::mutex> lock(census->mutex);
  census->instances[type] += change;
}

// countObjects(): starts counting. Call it before GTK is initialised.
void CountObjects(Info /*info*/) {
  auto* root = static_cast<GObjectClass*>(g_type_class_ref(G_TYPE_OBJECT));
  census = new Census;
  census->original = *root;
  root->constructor = [](GType type, guint count, GObjectConstructParam* parameters) {
    GObject* object = census->original.constructor(type, count, parameters);
    Note(type, 1);
    return object;
  };
  root->finalize = [](GObject* object) {
    Note(G_OBJECT_TYPE(object), -1);
    census->original.finalize(object);
  };
}

// objects(): living instances per type.
void Objects(Info info) {
  const auto result = Nan::New<v8::Object>();
  const std::lock_guard<std::mutex> lock(census->mutex);
  for (const auto& [type, count] : census->instances) {
    if (count == 0) continue;
    Nan::Set(result, Nan::New(g_type_name(type)).ToLocalChecked(), Nan::New(count)).Check();
  }
  info.GetReturnValue().Set(result);
}

// allocated(): bytes that malloc has handed out.
void Allocated(Info info) {
  const struct mallinfo2 all = mallinfo2();
  info.GetReturnValue().Set(static_cast<double>(all.uordblks) + static_cast<double>(all.hblkhd));
}

// processor(): processor milliseconds of this thread.
void Processor(Info info) { info.GetReturnValue().Set(Now()); }

uv_prepare_t turn_end;
double turn_began = 0;
double longest_turn = 0;

// watchTurns(): starts measuring event loop iterations.
void WatchTurns(Info /*info*/) {
  turn_began = Now();
  uv_prepare_init(Nan::GetCurrentEventLoop(), &turn_end);
  uv_prepare_start(&turn_end, [](uv_prepare_t* /*handle*/) {
    const double now = Now();
    longest_turn = std::max(longest_turn, now - turn_began);
    turn_began = now;
  });
  uv_unref(reinterpret_cast<uv_handle_t*>(&turn_end));
}

// longestTurn(): processor milliseconds of the longest iteration since the last call.
void LongestTurn(Info info) { info.GetReturnValue().Set(std::exchange(longest_turn, 0)); }

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  Nan::SetMethod(exports, "desktop", Desktop);
  Nan::SetMethod(exports, "compositor", Compositor);
  Nan::SetMethod(exports, "refused", Refused);
  Nan::SetMethod(exports, "screenshot2", ScreenShot2);
  Nan::SetMethod(exports, "portal", Portal);
  Nan::SetMethod(exports, "startCounting", StartCounting);
  Nan::SetMethod(exports, "stopCounting", StopCounting);
  Nan::SetMethod(exports, "counted", Counted);
  Nan::SetMethod(exports, "idle", Idle);
  Nan::SetMethod(exports, "prepare", Prepare);
  Nan::SetMethod(exports, "press", Press);
  Nan::SetMethod(exports, "move", Move);
  Nan::SetMethod(exports, "draw", Draw);
  Nan::SetMethod(exports, "countObjects", CountObjects);
  Nan::SetMethod(exports, "objects", Objects);
  Nan::SetMethod(exports, "allocated", Allocated);
  Nan::SetMethod(exports, "processor", Processor);
  Nan::SetMethod(exports, "watchTurns", WatchTurns);
  Nan::SetMethod(exports, "longestTurn", LongestTurn);
}

}  // namespace

NODE_MODULE(bench_reference, Setup)
