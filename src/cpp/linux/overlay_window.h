#ifndef SRC_CPP_LINUX_OVERLAY_WINDOW_H_
#define SRC_CPP_LINUX_OVERLAY_WINDOW_H_

#include <gtk/gtk.h>

#include "gdk_error_trap.h"
#include "glib_scoped.h"
#include "selection_drawing.h"

#if !GTK_CHECK_VERSION(3, 18, 0)
#error "kiv_native needs GTK 3.18 or later"
#endif

namespace kiv {

// Destroys the window, which another owner may have destroyed before, and drops our reference.
struct DestroyWindow {
  void operator()(GtkWidget* window) const {
    gtk_widget_destroy(window);
    g_object_unref(window);
  }
};
using GtkWindowPtr = std::unique_ptr<GtkWidget, DestroyWindow>;

// The full-screen window over one monitor in which the user selects. Sizes are in the picture's
// pixels. GTK measures in points of scale() pixels.
class OverlayWindow {
 public:
  // Not shown yet. `origin` is in points. A scale of 0 means GTK's own scale.
  OverlayWindow(GdkPoint origin, int width, int height, double scale);
  ~OverlayWindow() = default;
  OverlayWindow(const OverlayWindow&) = delete;
  OverlayWindow& operator=(const OverlayWindow&) = delete;

  void Show();
  // Raises it and asks for the focus.
  void Present();
  void Hide();
  // Redraws the whole window.
  void Invalidate();

  // Connects a handler until Disconnect() or destruction.
  void Connect(gpointer object, const char* signal, GCallback handler, gpointer data) {
    signals_.Connect(object, signal, handler, data);
  }
  void Disconnect() { signals_.Disconnect(); }

  GtkWidget* window() const { return window_.get(); }
  GtkWidget* drawing_area() const { return drawing_area_; }
  GdkScreen* screen() const { return gtk_widget_get_screen(window_.get()); }
  double scale() const { return scale_; }
  int ToPixels(double points) const { return static_cast<int>(points * scale_ + kRounding); }

 private:
  int ToPoints(int pixels) const;

  // Another client may destroy the window between two drawings.
  GdkErrorTrap trap_;
  GtkWindowPtr window_;
  GtkWidget* drawing_area_;  // owned by the window
  double scale_;
  int width_;
  int height_;
  ScopedSignals signals_;
};

// Ends grabs of the host's menus, combo boxes and other popups, which would keep pointer and
// keyboard away from the overlay. Closes menus, which may call any handler of the host.
void EndGrabs();

}  // namespace kiv

#endif  // SRC_CPP_LINUX_OVERLAY_WINDOW_H_
