#include "user_selection_helper_linux.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "../event_scope.h"
#include "../log_request_ids.h"
#include "../logging.h"
#include "../snap_completion.h"
#include "dbus_screenshot.h"
#include "desktop_session_agent_linux.h"
#include "gdk_capture.h"
#include "image_encoder.h"

namespace kiv {

namespace {

// What takes the focus while the overlay appears is not the person's doing.
constexpr gint64 kFocusGraceMicroseconds = 500'000;
constexpr double kCrossWidth = 1.0;
constexpr auto kWindowEvents =
    static_cast<int>(GDK_EXPOSURE_MASK | GDK_POINTER_MOTION_MASK | GDK_BUTTON_PRESS_MASK |
                     GDK_BUTTON_RELEASE_MASK | GDK_KEY_PRESS_MASK | GDK_FOCUS_CHANGE_MASK);

UserSelectionImpLinux* Self(gpointer data) { return static_cast<UserSelectionImpLinux*>(data); }

gboolean button_press_event(GtkWidget* /*widget*/, GdkEventButton* event, gpointer data) {
  return Self(data)->on_button_press_event(event);
}

gboolean button_release_event(GtkWidget* /*widget*/, GdkEventButton* event, gpointer data) {
  const EventScope event_scope;
  return Self(data)->on_button_release_event(event);
}

gboolean key_press_event(GtkWidget* /*widget*/, GdkEventKey* event, gpointer data) {
  const EventScope event_scope;
  return Self(data)->on_key_press_event(event);
}

gboolean focus_out_event(GtkWidget* /*widget*/, GdkEvent* event, gpointer data) {
  const EventScope event_scope;
  return Self(data)->on_focus_out_event(event);
}

gboolean motion_notify_event(GtkWidget* /*widget*/, GdkEventMotion* event, gpointer data) {
  return Self(data)->on_motion_notify_event(event);
}

gboolean cairo_draw_event(GtkWidget* widget, cairo_t* cr, gpointer data) {
  return Self(data)->on_cairo_draw_event(widget, cr);
}

gboolean configure_event(GtkWidget* widget, GdkEventConfigure* event, gpointer data) {
  return Self(data)->on_configure_event(widget, event);
}

// Closed by the window manager, or taken off the screen by somebody else.
gboolean closed_event(GtkWidget* /*widget*/, GdkEvent* /*event*/, gpointer data) {
  const EventScope event_scope;
  Self(data)->Fail();
  return TRUE;
}

void destroyed(GtkWidget* /*widget*/, gpointer data) {
  const EventScope event_scope;
  Self(data)->Fail();
}

void monitors_changed(GdkScreen* /*screen*/, gpointer data) {
  const EventScope event_scope;
  Self(data)->on_monitors_changed();
}

gboolean prepare_base(gpointer data) {
  Self(data)->PrepareBase();
  return G_SOURCE_REMOVE;
}

bool SameArea(const GdkRectangle& a, const GdkRectangle& b) {
  return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
}

bool MonitorExists(GdkScreen* screen, const GdkRectangle& wanted) {
  for (int i = 0; i < gdk_screen_get_n_monitors(screen); ++i) {
    GdkRectangle area = {};
    gdk_screen_get_monitor_geometry(screen, i, &area);
    if (SameArea(area, wanted)) return true;
  }
  return SameArea(DesktopArea(), wanted);
}

void CloseMenus() {
  GList* windows = gtk_window_list_toplevels();
  g_list_foreach(
      windows, [](gpointer window, gpointer) { g_object_ref(window); }, nullptr);
  for (const GList* entry = windows; entry; entry = entry->next) {
    GtkWindowGroup* group = gtk_window_get_group(GTK_WINDOW(entry->data));
    GtkWidget* grabbing = gtk_window_group_get_current_grab(group);
    if (GTK_IS_MENU_SHELL(grabbing)) gtk_menu_shell_cancel(GTK_MENU_SHELL(grabbing));
  }
  g_list_free_full(windows, g_object_unref);
}

// A menu, a combo box's list or another popup of the host's keeps pointer and keyboard from every
// other window while it holds them.
void EndGrabs() {
  CloseMenus();
  GdkDisplay* display = gdk_display_get_default();
  GList* devices = gdk_device_manager_list_devices(gdk_display_get_device_manager(display),
                                                   GDK_DEVICE_TYPE_MASTER);
  for (const GList* entry = devices; entry; entry = entry->next) {
    GdkDevice* device = GDK_DEVICE(entry->data);
    if (gdk_display_device_is_grabbed(display, device)) gdk_device_ungrab(device, GDK_CURRENT_TIME);
  }
  g_list_free(devices);
}

// Pixels from the root window's corner, `scale` to a point.
std::pair<int, int> PointerPosition(int scale) {
  GdkDeviceManager* manager = gdk_display_get_device_manager(gdk_display_get_default());
  GdkDevice* pointer = gdk_device_manager_get_client_pointer(manager);
  double x = 0.0;
  double y = 0.0;
  // In whole points the cross would stand beside the pointer where a point has several pixels.
  if (pointer) gdk_device_get_position_double(pointer, nullptr, &x, &y);
  return {static_cast<int>(x * scale), static_cast<int>(y * scale)};
}

}  // namespace

UserSelectionImpLinux::UserSelectionImpLinux(DesktopSessionData* session_data)
    : session_data_(session_data) {}

void UserSelectionImpLinux::start_selection(void* context) {
  // The completion before may have led here; what its selection showed is still there then.
  Release();
  context_ = context;
  const uint64_t request = ++request_;
  session_data_->define_session_type();
  monitor_ = ActiveDisplayArea();
  auto picture = TakePicture();
  // A failure's log line may have ended this request.
  if (!IsOpen(request)) return;
  base_pixbuf_ = picture.release();
  if (!base_pixbuf_) return FailStart(kLoggingRequestId_ScreenSnapCreateBasePixmapError);
  left_ = top_ = 0;
  right_ = gdk_pixbuf_get_width(base_pixbuf_);
  bottom_ = gdk_pixbuf_get_height(base_pixbuf_);
  current_x_ = anchor_x_ = current_y_ = anchor_y_ = 0;
  blended_pixbuf_ = MakeDimmed(base_pixbuf_).release();
  if (!blended_pixbuf_) return FailStart(kLoggingRequestId_ScreenSnapCreateBlandedPixmapError);
  EndGrabs();
  // A menu's end may call anything of the host's.
  if (!IsOpen(request)) return;
  OpenWindow();
}

// Null without a display for the window, too.
GObjectPtr<GdkPixbuf> UserSelectionImpLinux::TakePicture() const {
  GdkDisplay* display = gdk_display_get_default();
  if (!display || gdk_display_is_closed(display)) return nullptr;
  if (session_data_->is_x11) return CaptureRoot(monitor_);
  const auto backend = DbusScreenshot::Create();
  return AdoptGObject(backend ? backend->SnapActiveDisplay() : nullptr);
}

// Lets go of everything first: the logger and the request's function may call anything.
void UserSelectionImpLinux::FailStart(const char* request_id) {
  void* const context = std::exchange(context_, nullptr);
  Release();
  LogMessage(LogMessage::error).stream() << request_id;
  PublishPicture(&session_data_->snap, ScreenSnap());
  OnScreenSnapCompleted(kSnapSelectionFailed, &session_data_->snap, context, true);
}

void UserSelectionImpLinux::OpenWindow() {
  // Somebody may destroy the window at any time, and GDK ends the process at an unexpected error of
  // its own drawing. Released with the window.
  gdk_error_trap_push();
  window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  g_object_ref(window_);
  // A modal window or a menu of the host's takes the events of its own window group only.
  const auto group = AdoptGObject(gtk_window_group_new());
  gtk_window_group_add_window(group.get(), GTK_WINDOW(window_));
  scale_ = gtk_widget_get_scale_factor(window_);
  const int width = ToPoints(right_);
  const int height = ToPoints(bottom_);
  GtkWindow* window = GTK_WINDOW(window_);
  GtkAllocation allocation = {0, 0, width, height};
  gtk_widget_size_allocate(window_, &allocation);
  gtk_window_fullscreen(window);
  gtk_window_set_keep_above(window, TRUE);
  gtk_widget_set_size_request(window_, width, height);
  gtk_window_move(window, monitor_.x, monitor_.y);
  gtk_widget_set_events(window_, kWindowEvents);
  drawing_area_ = gtk_drawing_area_new();
  gtk_container_add(GTK_CONTAINER(window_), drawing_area_);
  ConnectSignals();
  gtk_widget_show_all(window_);
  const auto cursor =
      AdoptGObject(gdk_cursor_new_for_display(gtk_widget_get_display(window_), GDK_CROSSHAIR));
  gdk_window_set_cursor(gtk_widget_get_window(window_), cursor.get());
  shown_ = false;
  gettimeofday(&start_time_, nullptr);
  gtk_window_present(window);
  Invalidate();
}

void UserSelectionImpLinux::ConnectSignals() {
  const auto connect = [this](gpointer object, const char* signal, GCallback handler) {
    g_signal_connect_data(object, signal, handler, this, nullptr, static_cast<GConnectFlags>(0));
  };
  connect(window_, "motion_notify_event", G_CALLBACK(motion_notify_event));
  connect(window_, "button_release_event", G_CALLBACK(button_release_event));
  connect(window_, "button_press_event", G_CALLBACK(button_press_event));
  connect(drawing_area_, "draw", G_CALLBACK(cairo_draw_event));
  connect(window_, "key_press_event", G_CALLBACK(key_press_event));
  connect(window_, "focus_out_event", G_CALLBACK(focus_out_event));
  connect(drawing_area_, "configure-event", G_CALLBACK(configure_event));
  connect(window_, "delete-event", G_CALLBACK(closed_event));
  connect(window_, "unmap-event", G_CALLBACK(closed_event));
  connect(window_, "destroy", G_CALLBACK(destroyed));
  GdkScreen* screen = gtk_widget_get_screen(window_);
  connect(screen, "monitors-changed", G_CALLBACK(monitors_changed));
  connect(screen, "size-changed", G_CALLBACK(monitors_changed));
}

void UserSelectionImpLinux::CancelPrepareBase() {
  if (prepare_base_id_ != 0) g_source_remove(std::exchange(prepare_base_id_, 0));
}

void UserSelectionImpLinux::Release() {
  CancelPrepareBase();
  g_clear_pointer(&cr_, cairo_destroy);
  g_clear_pointer(&surface_, cairo_surface_destroy);
  g_clear_pointer(&base_source_, cairo_surface_destroy);
  g_clear_pointer(&blended_source_, cairo_surface_destroy);
  g_clear_object(&base_pixbuf_);
  g_clear_object(&blended_pixbuf_);
  if (!window_) return;
  GtkWidget* window = std::exchange(window_, nullptr);
  g_signal_handlers_disconnect_by_data(gtk_widget_get_screen(window), this);
  g_signal_handlers_disconnect_by_data(window, this);
  drawing_area_ = nullptr;
  gtk_widget_destroy(window);
  g_object_unref(window);
  gdk_error_trap_pop_ignored();
}

void UserSelectionImpLinux::selection_finish(int code) {
  // Whatever JavaScript does below finds no open selection.
  void* const context = std::exchange(context_, nullptr);
  if (!context) return;
  const uint64_t request = request_;
  ScreenSnap picture = std::exchange(cut_out_, ScreenSnap());
  button_pressed_ = false;
  // The loop may run in what is called below, when the window is gone already.
  CancelPrepareBase();
  LogMessage(LogMessage::info).stream() << kLoggingRequestId_ScreenSnapSelectionError << code;
  if (window_) gtk_widget_hide(window_);
  PublishPicture(&session_data_->snap, std::move(picture));
  OnScreenSnapCompleted(code, &session_data_->snap, context, true);
  // What is there may be another selection's by now.
  if (request == request_) Release();
}

void UserSelectionImpLinux::EscPressed() { selection_finish(kSnapSelectionCancelled); }

void UserSelectionImpLinux::Fail() { selection_finish(kSnapSelectionFailed); }

void UserSelectionImpLinux::Drop() {
  void* const context = std::exchange(context_, nullptr);
  if (context) DropScreenSnapRequest(context);
  Release();
}

void UserSelectionImpLinux::get_rect(int& x, int& y, int& w, int& h) const {
  x = std::min(anchor_x_, current_x_);
  y = std::min(anchor_y_, current_y_);
  w = std::abs(anchor_x_ - current_x_);
  h = std::abs(anchor_y_ - current_y_);
}

GdkRectangle UserSelectionImpLinux::Rectangle() const {
  GdkRectangle area = {};
  get_rect(area.x, area.y, area.width, area.height);
  return area;
}

bool UserSelectionImpLinux::IsValidPoint(int x, int y) const {
  return left_ <= x && x <= right_ && top_ <= y && y <= bottom_;
}

gboolean UserSelectionImpLinux::on_button_press_event(GdkEventButton* event) {
  const int x = ToPixels(event->x);
  const int y = ToPixels(event->y);
  if (!context_ || !IsValidPoint(x, y) || event->type != GDK_BUTTON_PRESS) return TRUE;
  button_pressed_ = true;
  anchor_x_ = current_x_ = x;
  anchor_y_ = current_y_ = y;
  return TRUE;
}

gboolean UserSelectionImpLinux::on_button_release_event(GdkEventButton* /*event*/) {
  if (!context_) return TRUE;
  button_pressed_ = false;
  const uint64_t request = request_;
  ScreenSnap picture = CutOut(Rectangle());
  // An encoder's log line may have ended this selection.
  if (!IsOpen(request)) return TRUE;
  cut_out_ = std::move(picture);
  selection_finish(kSnapCompleted);
  return TRUE;
}

// Empty for an empty rectangle.
ScreenSnap UserSelectionImpLinux::CutOut(const GdkRectangle& area) const {
  ScreenSnap picture;
  if (area.width <= 0 || area.height <= 0) return picture;
  const auto cut =
      AdoptGObject(gdk_pixbuf_new_subpixbuf(base_pixbuf_, area.x, area.y, area.width, area.height));
  picture.width = static_cast<uint32_t>(area.width);
  picture.height = static_cast<uint32_t>(area.height);
  FetchPixbufImage(picture, cut.get(), picture.width, picture.height, false, false);
  return picture;
}

gboolean UserSelectionImpLinux::on_key_press_event(GdkEventKey* event) {
  if (event->keyval == GDK_KEY_Escape) EscPressed();
  return TRUE;
}

gboolean UserSelectionImpLinux::on_focus_out_event(GdkEvent* /*event*/) {
  // A window that appears may lose the focus and get it back; on a slow host that takes longer than
  // the grace, which therefore begins with the first picture.
  if (!shown_) return TRUE;
  timeval now = {};
  gettimeofday(&now, nullptr);
  const gint64 elapsed = (static_cast<gint64>(now.tv_sec) - start_time_.tv_sec) * 1'000'000 +
                         (static_cast<gint64>(now.tv_usec) - start_time_.tv_usec);
  if (elapsed >= kFocusGraceMicroseconds) Fail();
  return TRUE;
}

void UserSelectionImpLinux::on_monitors_changed() {
  if (context_ && !MonitorExists(gtk_widget_get_screen(window_), monitor_)) Fail();
}

gboolean UserSelectionImpLinux::on_configure_event(GtkWidget* widget,
                                                   GdkEventConfigure* /*event*/) {
  if (!blended_pixbuf_) return TRUE;
  const int width = gtk_widget_get_allocated_width(widget);
  const int height = gtk_widget_get_allocated_height(widget);
  GdkWindow* window = gtk_widget_get_window(widget);
  if (!blended_source_) blended_source_ = PrepareSource(window, blended_pixbuf_, scale_).release();
  g_clear_pointer(&surface_, cairo_surface_destroy);
  surface_ = gdk_window_create_similar_surface(window, CAIRO_CONTENT_COLOR, width, height);
  g_clear_pointer(&cr_, cairo_destroy);
  cr_ = cairo_create(surface_);
  if (scale_ != 1) cairo_scale(cr_, 1.0 / scale_, 1.0 / scale_);
  FillFrom(cr_, blended_source_,
           {0.0, 0.0, static_cast<double>(width) * scale_, static_cast<double>(height) * scale_});
  const auto [x, y] = PointerPosition(scale_);
  draw_dashed_cross(cr_, x, y);
  return TRUE;
}

gboolean UserSelectionImpLinux::on_cairo_draw_event(GtkWidget* /*widget*/, cairo_t* cr) {
  if (surface_) PaintFrom(cr, surface_);
  if (!std::exchange(shown_, true)) gettimeofday(&start_time_, nullptr);
  // Not needed before a drag, so it does not delay the first picture.
  if (context_ && !base_source_ && prepare_base_id_ == 0) {
    prepare_base_id_ = g_idle_add(prepare_base, this);
  }
  return FALSE;
}

void UserSelectionImpLinux::PrepareBase() {
  CancelPrepareBase();
  if (base_source_) return;
  GdkWindow* window = gtk_widget_get_window(window_);
  base_source_ = PrepareSource(window, base_pixbuf_, scale_).release();
}

gboolean UserSelectionImpLinux::on_motion_notify_event(GdkEventMotion* event) {
  const int x = ToPixels(event->x);
  const int y = ToPixels(event->y);
  if (!context_ || !cr_ || !IsValidPoint(x, y)) return TRUE;
  cairo_set_line_width(cr_, kCrossWidth);
  if (cross_drawn_) PaintFrom(cr_, blended_source_);
  cross_drawn_ = true;
  const GdkRectangle before = Rectangle();
  current_x_ = x;
  current_y_ = y;
  if (!button_pressed_) {
    anchor_x_ = x;
    anchor_y_ = y;
    draw_dashed_cross(cr_, x, y);
  } else {
    DrawDragStep(before);
  }
  Invalidate();
  return TRUE;
}

void UserSelectionImpLinux::DrawDragStep(const GdkRectangle& before) {
  draw_dashed_cross(cr_, current_x_, current_y_);
  const GdkRectangle after = Rectangle();
  // A point has nothing to restore: the step is the first one after the press.
  if (before.width > 0 || before.height > 0) {
    for (const Crectangle_d& strip : UncoveredStrips(before, after)) {
      FillFrom(cr_, blended_source_, strip);
    }
  }
  PrepareBase();
  FillFrom(cr_, base_source_,
           {static_cast<double>(after.x), static_cast<double>(after.y),
            static_cast<double>(after.width), static_cast<double>(after.height)});
}

// All of it, whatever changed.
void UserSelectionImpLinux::Invalidate() {
  gtk_widget_queue_draw_area(window_, 0, 0, ToPoints(right_), ToPoints(bottom_));
}

}  // namespace kiv
