#ifndef SRC_CPP_LINUX_USER_SELECTION_HELPER_LINUX_H_
#define SRC_CPP_LINUX_USER_SELECTION_HELPER_LINUX_H_

#include <gtk/gtk.h>
#include <sys/time.h>

#include <memory>
#include <optional>

#include "../screen_snap.h"
#include "glib_scoped.h"
#include "overlay_placement.h"
#include "overlay_window.h"
#include "selection_area.h"
#include "selection_drawing.h"

namespace kiv {

struct DesktopSessionData;

// The overlay in which the user selects a rectangle of a frozen, dimmed picture of the active
// monitor. One selection at a time. It calls OnScreenSnapCompleted exactly once, whatever happens
// to the window, with the selected part in the record's snapshot. Main thread only.
class UserSelectionImpLinux {
 public:
  explicit UserSelectionImpLinux(DesktopSessionData* session_data);
  ~UserSelectionImpLinux();
  UserSelectionImpLinux(const UserSelectionImpLinux&) = delete;
  UserSelectionImpLinux& operator=(const UserSelectionImpLinux&) = delete;

  // Shows the overlay and returns. No selection may be open; `context` must not be null.
  void start_selection(void* context);
  // Handles Escape, whichever window has the focus. Does nothing without an open selection.
  void EscPressed();
  // Ends an open selection as failed. Does nothing without one.
  void Fail();
  // Closes the selection without calling JavaScript. Called when the runtime ends.
  void Drop();
  // Ends the open selection with the selected part of the picture, if any. Enters JavaScript.
  void selection_finish(int code);
  // Without an open selection the rectangle is all 0 and no point is valid.
  void get_rect(int& x, int& y, int& w, int& h) const;
  bool IsValidPoint(int x, int y) const;

  gboolean on_button_press_event(GdkEventButton* event);
  gboolean on_button_release_event(GdkEventButton* event);
  gboolean on_key_press_event(GdkEventKey* event);
  gboolean on_focus_out_event(GdkEvent* event);
  gboolean on_motion_notify_event(GdkEventMotion* event);
  gboolean on_configure_event(GtkWidget* widget, GdkEventConfigure* event);
  gboolean on_cairo_draw_event(GtkWidget* widget, cairo_t* cr);
  // The monitor layout changed.
  void on_monitors_changed();

 private:
  // One selection, from request to completion. Members are destroyed in reverse order: the drawing
  // before the window.
  struct Selection {
    explicit Selection(void* context) : context_(context) {}

    void* context_;              // the request's
    GdkRectangle monitor_ = {};  // in points
    std::optional<OverlayWindow> window_;
    std::optional<SelectionCanvas> canvas_;
    std::optional<SelectionArea> area_;
    IdleSource prepare_base_;
    ScreenSnap cut_out_;       // empty until the button is released
    bool shown_ = false;       // the first picture was drawn
    timeval start_time_ = {};  // when the window was presented or, later, first drawn
  };

  // Returns no picture without a display, or when the capture failed.
  PlacedPicture TakePicture(const GdkRectangle& monitor) const;
  void FailStart(const char* request_id);
  void OpenWindow(PlacedPicture base, GObjectPtr<GdkPixbuf> blended);
  void ConnectSignals(OverlayWindow* window);

  DesktopSessionData* session_data_;
  bool cross_drawn_ = false;  // never cleared
  // Null when no selection is open. After JavaScript has run, compare it with the one you hold.
  std::shared_ptr<Selection> selection_;
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_USER_SELECTION_HELPER_LINUX_H_
