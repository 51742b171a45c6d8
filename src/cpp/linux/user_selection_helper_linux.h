#ifndef SRC_CPP_LINUX_USER_SELECTION_HELPER_LINUX_H_
#define SRC_CPP_LINUX_USER_SELECTION_HELPER_LINUX_H_

#include <gtk/gtk.h>
#include <sys/time.h>

#include <cstdint>

#include "../screen_snap.h"
#include "selection_drawing.h"

namespace kiv {

struct DesktopSessionData;

// The overlay in which the person drags out a rectangle of a frozen, dimmed picture of the active
// monitor. One selection at a time; its outcome arrives through OnScreenSnapCompleted, exactly once
// whatever happens to the window, with the cut-out in the record's snapshot. Main thread only.
//
// Coordinates are pixels of the captured picture. GTK measures in points, `scale_` pixels each.
class UserSelectionImpLinux {
 public:
  explicit UserSelectionImpLinux(DesktopSessionData* session_data);
  // Closes nothing: an open overlay goes with the process.
  ~UserSelectionImpLinux() = default;
  UserSelectionImpLinux(const UserSelectionImpLinux&) = delete;
  UserSelectionImpLinux& operator=(const UserSelectionImpLinux&) = delete;

  // Shows the overlay and returns. No selection may be open; `context` is not null.
  void start_selection(void* context);
  // Escape, wherever the keyboard focus is. Does nothing without an open selection.
  void EscPressed();
  // Ends an open selection as failed. Does nothing without one.
  void Fail();
  // Closes everything without a word to JavaScript, at the runtime's end.
  void Drop();
  // Ends the open selection. Enters JavaScript.
  void selection_finish(int code);

  // The rectangle between the pressed and the moving corner.
  void get_rect(int& x, int& y, int& w, int& h) const;
  // Both bounds included.
  bool IsValidPoint(int x, int y) const;

  gboolean on_button_press_event(GdkEventButton* event);
  gboolean on_button_release_event(GdkEventButton* event);
  gboolean on_key_press_event(GdkEventKey* event);
  gboolean on_focus_out_event(GdkEvent* event);
  gboolean on_motion_notify_event(GdkEventMotion* event);
  gboolean on_configure_event(GtkWidget* widget, GdkEventConfigure* event);
  gboolean on_cairo_draw_event(GtkWidget* widget, cairo_t* cr);
  // The monitors' layout changed.
  void on_monitors_changed();
  // Makes the undimmed source, once the overlay is on the screen or a drag needs it.
  void PrepareBase();

 private:
  GObjectPtr<GdkPixbuf> TakePicture() const;
  void FailStart(const char* request_id);
  void OpenWindow();
  void ConnectSignals();
  void CancelPrepareBase();
  // Whether the selection that a caller began is the one that is open.
  bool IsOpen(uint64_t request) const { return context_ && request == request_; }
  ScreenSnap CutOut(const GdkRectangle& area) const;
  // Gives back the window, the pictures and the surfaces, those that there are.
  void Release();
  void Invalidate();
  void DrawDragStep(const GdkRectangle& before);
  GdkRectangle Rectangle() const;
  int ToPixels(double points) const { return static_cast<int>(points * scale_); }
  int ToPoints(int pixels) const { return (pixels + scale_ - 1) / scale_; }

  DesktopSessionData* session_data_;
  GdkPixbuf* base_pixbuf_ = nullptr;     // the captured picture, while a selection is open
  GdkPixbuf* blended_pixbuf_ = nullptr;  // its dimmed copy
  cairo_surface_t* surface_ = nullptr;   // always the whole current picture of the overlay
  GtkWidget* window_ = nullptr;          // one reference, besides GTK's own
  GtkWidget* drawing_area_ = nullptr;
  cairo_t* cr_ = nullptr;  // on surface_
  int left_ = 0;
  int top_ = 0;
  int right_ = 0;
  int bottom_ = 0;
  int current_x_ = 0;
  int anchor_x_ = 0;
  int current_y_ = 0;
  int anchor_y_ = 0;
  bool button_pressed_ = false;
  bool cross_drawn_ = false;  // never cleared
  void* context_ = nullptr;   // null: no selection is open
  uint64_t request_ = 0;      // number of the selection begun last
  ScreenSnap cut_out_;        // what the open selection ends with; empty until then
  bool shown_ = false;        // the first picture of this selection has been drawn
  timeval start_time_ = {};

  GdkRectangle monitor_ = {};  // in points
  int scale_ = 1;
  // base_pixbuf_ and blended_pixbuf_ as the drawing's sources.
  guint prepare_base_id_ = 0;
  cairo_surface_t* base_source_ = nullptr;
  cairo_surface_t* blended_source_ = nullptr;
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_USER_SELECTION_HELPER_LINUX_H_
