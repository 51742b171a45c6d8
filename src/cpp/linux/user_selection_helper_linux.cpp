#include "user_selection_helper_linux.h"

#include <utility>

#include "../event_scope.h"
#include "../log_request_ids.h"
#include "../logging.h"
#include "../snap_completion.h"
#include "compositor_capture.h"
#include "desktop_session_data_linux.h"
#include "gdk_capture.h"
#include "image_encoder.h"

namespace kiv {

namespace {

// A focus loss while the overlay appears was not caused by the user.
constexpr gint64 kFocusGraceMicroseconds = 500'000;

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

// The window manager closed it, or another client unmapped it.
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

// In points from the root window's corner.
std::pair<double, double> PointerPosition() {
  GdkDeviceManager* manager = gdk_display_get_device_manager(gdk_display_get_default());
  GdkDevice* pointer = gdk_device_manager_get_client_pointer(manager);
  std::pair<double, double> position = {0.0, 0.0};
  // Rounded to whole points, the cross would miss the pointer when a point has several pixels.
  if (pointer) gdk_device_get_position_double(pointer, nullptr, &position.first, &position.second);
  return position;
}

timeval Now() {
  timeval now = {};
  gettimeofday(&now, nullptr);
  return now;
}

// Empty for an empty rectangle. Logs a failure, which enters JavaScript.
ScreenSnap CutOut(GdkPixbuf* picture, const GdkRectangle& area) {
  if (area.width <= 0 || area.height <= 0) return {};
  const auto cut =
      AdoptGObject(gdk_pixbuf_new_subpixbuf(picture, area.x, area.y, area.width, area.height));
  ScreenSnap snap;
  snap.width = static_cast<uint32_t>(area.width);
  snap.height = static_cast<uint32_t>(area.height);
  FetchPixbufImage(snap, cut.get(), snap.width, snap.height, false, false);
  return snap;
}

}  // namespace

UserSelectionImpLinux::UserSelectionImpLinux(DesktopSessionData* session_data)
    : session_data_(session_data) {}

UserSelectionImpLinux::~UserSelectionImpLinux() = default;

void UserSelectionImpLinux::start_selection(void* context) {
  const auto mine = std::make_shared<Selection>(context);
  selection_ = mine;
  session_data_->define_session_type();
  PlacedPicture base = TakePicture(ActiveDisplayArea());
  // The log line of a failure may have ended this request.
  if (selection_ != mine) return;
  if (!base.pixbuf) return FailStart(kLoggingRequestId_ScreenSnapCreateBasePixmapError);
  auto blended = MakeDimmed(base.pixbuf.get());
  if (!blended) {
    base.pixbuf.reset();
    return FailStart(kLoggingRequestId_ScreenSnapCreateBlandedPixmapError);
  }
  EndGrabs();
  // Closing a menu may call any handler of the host.
  if (selection_ != mine) return;
  OpenWindow(std::move(base), std::move(blended));
}

PlacedPicture UserSelectionImpLinux::TakePicture(const GdkRectangle& monitor) const {
  GdkDisplay* display = gdk_display_get_default();
  if (!display || gdk_display_is_closed(display)) return {};
  if (session_data_->is_x11) return {CaptureRoot(monitor), monitor, 0};
  auto picture = CaptureCompositor(CompositorArea::kActiveScreen, session_data_->screen_locked);
  if (!picture.pixbuf) return {};
  return PlaceOnMonitor(std::move(picture), monitor);
}

// Clears selection_ before the logger and the request's function run.
void UserSelectionImpLinux::FailStart(const char* request_id) {
  const auto mine = std::exchange(selection_, nullptr);
  LogMessage(LogMessage::error).stream() << request_id;
  PublishPicture(&session_data_->snap, ScreenSnap());
  OnScreenSnapCompleted(kSnapSelectionFailed, &session_data_->snap, mine->context_, true);
}

void UserSelectionImpLinux::OpenWindow(PlacedPicture base, GObjectPtr<GdkPixbuf> blended) {
  const int width = gdk_pixbuf_get_width(base.pixbuf.get());
  const int height = gdk_pixbuf_get_height(base.pixbuf.get());
  selection_->monitor_ = base.monitor;
  selection_->area_.emplace(width, height);
  const GdkPoint origin = {base.monitor.x, base.monitor.y};
  OverlayWindow& window = selection_->window_.emplace(origin, width, height, base.scale);
  selection_->canvas_.emplace(std::move(base.pixbuf), std::move(blended), window.scale());
  ConnectSignals(&window);
  window.Show();
  selection_->start_time_ = Now();
  window.Present();
  window.Invalidate();
}

void UserSelectionImpLinux::ConnectSignals(OverlayWindow* window) {
  const auto connect = [&](gpointer object, const char* signal, GCallback handler) {
    window->Connect(object, signal, handler, this);
  };
  GtkWidget* const top = window->window();
  GtkWidget* const drawing_area = window->drawing_area();
  connect(top, "motion_notify_event", G_CALLBACK(motion_notify_event));
  connect(top, "button_release_event", G_CALLBACK(button_release_event));
  connect(top, "button_press_event", G_CALLBACK(button_press_event));
  connect(drawing_area, "draw", G_CALLBACK(cairo_draw_event));
  connect(top, "key_press_event", G_CALLBACK(key_press_event));
  connect(top, "focus_out_event", G_CALLBACK(focus_out_event));
  connect(drawing_area, "configure-event", G_CALLBACK(configure_event));
  connect(top, "delete-event", G_CALLBACK(closed_event));
  connect(top, "unmap-event", G_CALLBACK(closed_event));
  connect(top, "destroy", G_CALLBACK(destroyed));
  connect(window->screen(), "monitors-changed", G_CALLBACK(monitors_changed));
  connect(window->screen(), "size-changed", G_CALLBACK(monitors_changed));
}

void UserSelectionImpLinux::selection_finish(int code) {
  // JavaScript called below finds no open selection. This one is destroyed on return.
  const auto mine = std::exchange(selection_, nullptr);
  if (!mine) return;
  // JavaScript may run a loop, which must not draw on a window that is gone.
  mine->prepare_base_.Cancel();
  if (mine->window_) mine->window_->Disconnect();
  LogMessage(LogMessage::info).stream() << kLoggingRequestId_ScreenSnapSelectionError << code;
  if (mine->window_) mine->window_->Hide();
  PublishPicture(&session_data_->snap, std::move(mine->cut_out_));
  OnScreenSnapCompleted(code, &session_data_->snap, mine->context_, true);
}

void UserSelectionImpLinux::get_rect(int& x, int& y, int& w, int& h) const {
  const bool open = selection_ && selection_->area_;
  const GdkRectangle area = open ? selection_->area_->Rectangle() : GdkRectangle{};
  x = area.x;
  y = area.y;
  w = area.width;
  h = area.height;
}

bool UserSelectionImpLinux::IsValidPoint(int x, int y) const {
  return selection_ && selection_->area_ && selection_->area_->IsValidPoint(x, y);
}

void UserSelectionImpLinux::EscPressed() { selection_finish(kSnapSelectionCancelled); }

void UserSelectionImpLinux::Fail() { selection_finish(kSnapSelectionFailed); }

void UserSelectionImpLinux::Drop() {
  if (const auto mine = std::exchange(selection_, nullptr)) DropScreenSnapRequest(mine->context_);
}

gboolean UserSelectionImpLinux::on_button_press_event(GdkEventButton* event) {
  if (!selection_ || event->type != GDK_BUTTON_PRESS) return TRUE;
  const int x = selection_->window_->ToPixels(event->x);
  const int y = selection_->window_->ToPixels(event->y);
  if (IsValidPoint(x, y)) selection_->area_->Press(x, y);
  return TRUE;
}

gboolean UserSelectionImpLinux::on_button_release_event(GdkEventButton* /*event*/) {
  const auto mine = selection_;
  if (!mine) return TRUE;
  mine->area_->button_pressed_ = false;
  GdkRectangle area = {};
  get_rect(area.x, area.y, area.width, area.height);
  mine->cut_out_ = CutOut(mine->canvas_->picture(), area);
  if (selection_ == mine) selection_finish(kSnapCompleted);
  return TRUE;
}

gboolean UserSelectionImpLinux::on_key_press_event(GdkEventKey* event) {
  if (event->keyval == GDK_KEY_Escape) EscPressed();
  return TRUE;
}

gboolean UserSelectionImpLinux::on_focus_out_event(GdkEvent* /*event*/) {
  // A new window may lose and regain the focus, which can take longer than the grace period on a
  // slow host. The period therefore starts with the first picture.
  if (!selection_ || !selection_->shown_) return TRUE;
  const timeval now = Now();
  const timeval& start = selection_->start_time_;
  const gint64 elapsed = (static_cast<gint64>(now.tv_sec) - start.tv_sec) * 1'000'000 +
                         (static_cast<gint64>(now.tv_usec) - start.tv_usec);
  if (elapsed >= kFocusGraceMicroseconds) Fail();
  return TRUE;
}

void UserSelectionImpLinux::on_monitors_changed() {
  if (!selection_) return;
  if (!MonitorExists(selection_->window_->screen(), selection_->monitor_)) Fail();
}

gboolean UserSelectionImpLinux::on_configure_event(GtkWidget* widget,
                                                   GdkEventConfigure* /*event*/) {
  if (!selection_) return TRUE;
  const auto [x, y] = PointerPosition();
  const OverlayWindow& window = *selection_->window_;
  selection_->canvas_->Configure(
      gtk_widget_get_window(widget), gtk_widget_get_allocated_width(widget),
      gtk_widget_get_allocated_height(widget), window.ToPixels(x), window.ToPixels(y));
  return TRUE;
}

gboolean UserSelectionImpLinux::on_cairo_draw_event(GtkWidget* /*widget*/, cairo_t* cr) {
  if (!selection_) return FALSE;
  SelectionCanvas& canvas = *selection_->canvas_;
  if (canvas.configured()) canvas.Show(cr);
  if (!std::exchange(selection_->shown_, true)) selection_->start_time_ = Now();
  // Only a drag needs it; do not delay the first picture.
  IdleSource& prepare_base = selection_->prepare_base_;
  if (canvas.configured() && !canvas.base_prepared() && !prepare_base.pending()) {
    prepare_base.Start([](gpointer data) { static_cast<SelectionCanvas*>(data)->PrepareBase(); },
                       &canvas);
  }
  return FALSE;
}

gboolean UserSelectionImpLinux::on_motion_notify_event(GdkEventMotion* event) {
  if (!selection_ || !selection_->canvas_->configured()) return TRUE;
  SelectionArea& area = *selection_->area_;
  SelectionCanvas& canvas = *selection_->canvas_;
  const int x = selection_->window_->ToPixels(event->x);
  const int y = selection_->window_->ToPixels(event->y);
  if (!IsValidPoint(x, y)) return TRUE;
  canvas.BeginStep(std::exchange(cross_drawn_, true));
  const GdkRectangle before = area.Rectangle();
  area.MoveTo(x, y);
  if (area.button_pressed_) {
    canvas.DrawDragStep(x, y, before, area.Rectangle());
  } else {
    canvas.DrawCross(x, y);
  }
  // Redraw the whole window, whatever changed.
  selection_->window_->Invalidate();
  return TRUE;
}

}  // namespace kiv
