// Drives an overlay's pointer step and measures it, and holds the bare program that the module's
// overlay is measured against: the same pictures and drawing, nothing else. Written apart from the
// module on purpose.

// Xlib's macros break the headers of the engine that come after them.
// clang-format off
#include <nan.h>
// clang-format on

#include <gdk/gdkx.h>
#include <gtk/gtk.h>

#include <ctime>

namespace {

using Info = const Nan::FunctionCallbackInfo<v8::Value>&;

double Milliseconds(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

GtkWidget* VisibleToplevel() {
  GList* all = gtk_window_list_toplevels();
  GtkWidget* found = nullptr;
  for (GList* item = all; item; item = item->next) {
    auto* widget = static_cast<GtkWidget*>(item->data);
    if (gtk_widget_get_mapped(widget)) found = widget;
  }
  g_list_free(all);
  return found;
}

void Sync() { XSync(GDK_DISPLAY_XDISPLAY(gdk_display_get_default()), False); }

void SendPointer(GtkWidget* window, GdkEventType type, double x, double y) {
  GdkEvent* event = gdk_event_new(type);
  event->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(window)));
  GdkDevice* pointer = gdk_device_manager_get_client_pointer(
      gdk_display_get_device_manager(gdk_display_get_default()));
  gdk_event_set_device(event, pointer);
  if (type == GDK_MOTION_NOTIFY) {
    event->motion.x = x;
    event->motion.y = y;
  } else {
    event->button.x = x;
    event->button.y = y;
    event->button.button = 1;
  }
  gtk_widget_event(window, event);
  gdk_event_free(event);
}

// The bare program. Pictures come from the pixbufs at each fill, or from surfaces prepared once.
struct Bare {
  GtkWidget* window = nullptr;
  GdkPixbuf* base = nullptr;
  GdkPixbuf* dimmed = nullptr;
  cairo_surface_t* sources[2] = {};
  cairo_surface_t* surface = nullptr;
  cairo_t* cr = nullptr;
  bool prepared = false;
  double anchor_x = 0;
  double anchor_y = 0;
  bool pressed = false;
};
Bare bare;

void SetSource(cairo_t* cr, bool base) {
  if (bare.prepared) {
    cairo_set_source_surface(cr, bare.sources[base ? 1 : 0], 0, 0);
  } else {
    gdk_cairo_set_source_pixbuf(cr, base ? bare.base : bare.dimmed, 0, 0);
  }
}

void Cross(cairo_t* cr, double x, double y) {
  const double dash = 4.0;
  cairo_set_dash(cr, &dash, 1, 0);
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_move_to(cr, x + 0.5, 0);
  cairo_line_to(cr, x + 0.5, gdk_pixbuf_get_height(bare.base));
  cairo_move_to(cr, 0, y + 0.5);
  cairo_line_to(cr, gdk_pixbuf_get_width(bare.base), y + 0.5);
  cairo_stroke(cr);
}

cairo_surface_t* Prepare(GdkWindow* window, GdkPixbuf* picture) {
  cairo_surface_t* surface = gdk_window_create_similar_surface(
      window, CAIRO_CONTENT_COLOR, gdk_pixbuf_get_width(picture), gdk_pixbuf_get_height(picture));
  cairo_t* cr = cairo_create(surface);
  gdk_cairo_set_source_pixbuf(cr, picture, 0, 0);
  cairo_paint(cr);
  cairo_destroy(cr);
  return surface;
}

gboolean OnConfigure(GtkWidget* widget, GdkEvent* /*event*/, gpointer /*data*/) {
  GdkWindow* window = gtk_widget_get_window(widget);
  if (bare.prepared && !bare.sources[0]) {
    bare.sources[0] = Prepare(window, bare.dimmed);
    bare.sources[1] = Prepare(window, bare.base);
  }
  if (bare.cr) cairo_destroy(bare.cr);
  if (bare.surface) cairo_surface_destroy(bare.surface);
  bare.surface = gdk_window_create_similar_surface(window, CAIRO_CONTENT_COLOR,
                                                   gtk_widget_get_allocated_width(widget),
                                                   gtk_widget_get_allocated_height(widget));
  bare.cr = cairo_create(bare.surface);
  SetSource(bare.cr, false);
  cairo_paint(bare.cr);
  Cross(bare.cr, 0, 0);
  return TRUE;
}

gboolean OnDraw(GtkWidget* /*widget*/, cairo_t* cr, gpointer /*data*/) {
  cairo_set_source_surface(cr, bare.surface, 0, 0);
  cairo_paint(cr);
  return FALSE;
}

gboolean OnPress(GtkWidget* /*widget*/, GdkEventButton* event, gpointer /*data*/) {
  bare.pressed = true;
  bare.anchor_x = event->x;
  bare.anchor_y = event->y;
  return TRUE;
}

gboolean OnMotion(GtkWidget* /*widget*/, GdkEventMotion* event, gpointer /*data*/) {
  cairo_set_line_width(bare.cr, 1);
  SetSource(bare.cr, false);
  cairo_paint(bare.cr);
  Cross(bare.cr, event->x, event->y);
  if (bare.pressed) {
    SetSource(bare.cr, true);
    cairo_rectangle(bare.cr, bare.anchor_x, bare.anchor_y, event->x - bare.anchor_x,
                    event->y - bare.anchor_y);
    cairo_fill(bare.cr);
  }
  gtk_widget_queue_draw(bare.window);
  return TRUE;
}

// openBare(prepared): takes the picture, dims it and shows it.
void OpenBare(Info info) {
  bare.prepared = Nan::To<bool>(info[0]).FromJust();
  GdkWindow* root = gdk_get_default_root_window();
  const int width = gdk_window_get_width(root);
  const int height = gdk_window_get_height(root);
  bare.base = gdk_pixbuf_get_from_window(root, 0, 0, width, height);
  bare.dimmed = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height);
  gdk_pixbuf_fill(bare.dimmed, 0);
  gdk_pixbuf_composite(bare.base, bare.dimmed, 0, 0, width, height, 0, 0, 1, 1, GDK_INTERP_NEAREST,
                       150);
  bare.window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_fullscreen(GTK_WINDOW(bare.window));
  gtk_widget_set_size_request(bare.window, width, height);
  gtk_widget_set_events(bare.window, GDK_POINTER_MOTION_MASK | GDK_BUTTON_PRESS_MASK);
  GtkWidget* area = gtk_drawing_area_new();
  gtk_container_add(GTK_CONTAINER(bare.window), area);
  g_signal_connect(bare.window, "motion-notify-event", G_CALLBACK(OnMotion), nullptr);
  g_signal_connect(bare.window, "button-press-event", G_CALLBACK(OnPress), nullptr);
  g_signal_connect(area, "draw", G_CALLBACK(OnDraw), nullptr);
  g_signal_connect(area, "configure-event", G_CALLBACK(OnConfigure), nullptr);
  gtk_widget_show_all(bare.window);
  gtk_window_present(GTK_WINDOW(bare.window));
}

void CloseBare(Info) {
  gtk_widget_destroy(bare.window);
  cairo_destroy(bare.cr);
  cairo_surface_destroy(bare.surface);
  for (cairo_surface_t* source : bare.sources) cairo_surface_destroy(source);
  g_object_unref(bare.base);
  g_object_unref(bare.dimmed);
  bare = Bare();
}

gboolean NoteDrawn(GtkWidget* /*widget*/, cairo_t* /*cr*/, gpointer data) {
  *static_cast<bool*>(data) = true;
  return FALSE;
}

// untilDrawn(): runs the loop until the open overlay's first picture is on the screen.
void UntilDrawn(Info) {
  GtkWidget* window = VisibleToplevel();
  if (!window) return Nan::ThrowError("no overlay");
  bool drawn = false;
  const gulong id = g_signal_connect_after(window, "draw", G_CALLBACK(NoteDrawn), &drawn);
  while (!drawn) g_main_context_iteration(nullptr, TRUE);
  g_signal_handler_disconnect(window, id);
  Sync();
}

// press(x, y)
void Press(Info info) {
  SendPointer(VisibleToplevel(), GDK_BUTTON_PRESS, Nan::To<double>(info[0]).FromJust(),
              Nan::To<double>(info[1]).FromJust());
}

// step(x, y): [milliseconds from the event to the repainted window, this thread's own of it].
void Step(Info info) {
  GtkWidget* window = VisibleToplevel();
  const double x = Nan::To<double>(info[0]).FromJust();
  const double y = Nan::To<double>(info[1]).FromJust();
  Sync();
  const double start = Milliseconds(CLOCK_MONOTONIC);
  const double own = Milliseconds(CLOCK_THREAD_CPUTIME_ID);
  SendPointer(window, GDK_MOTION_NOTIFY, x, y);
  gdk_window_process_updates(gtk_widget_get_window(window), TRUE);
  Sync();
  auto result = Nan::New<v8::Array>();
  Nan::Set(result, 0, Nan::New(Milliseconds(CLOCK_MONOTONIC) - start)).Check();
  Nan::Set(result, 1, Nan::New(Milliseconds(CLOCK_THREAD_CPUTIME_ID) - own)).Check();
  info.GetReturnValue().Set(result);
}

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  Nan::SetMethod(exports, "openBare", OpenBare);
  Nan::SetMethod(exports, "closeBare", CloseBare);
  Nan::SetMethod(exports, "untilDrawn", UntilDrawn);
  Nan::SetMethod(exports, "press", Press);
  Nan::SetMethod(exports, "step", Step);
}

}  // namespace

NODE_MODULE(bench_overlay, Setup)
