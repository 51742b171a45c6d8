#include "gdk_capture.h"

#include <gdk/gdkx.h>

#include "gdk_error_trap.h"

namespace kiv {

namespace {

// Returns GDK's default root window, or null without an open X display.
GdkWindow* UsableRoot() {
  GdkDisplay* display = gdk_display_get_default();
  if (!display || !GDK_IS_X11_DISPLAY(display) || gdk_display_is_closed(display)) return nullptr;
  return gdk_get_default_root_window();
}

GdkRectangle AreaOf(GdkWindow* root) {
  GdkRectangle area = {0, 0, gdk_window_get_width(root), gdk_window_get_height(root)};
  gdk_window_get_origin(root, &area.x, &area.y);
  return area;
}

// GDK keeps a record of another client's window until the server reports that the window is gone.
// The server reports this only to clients that select the event.
void AskForTheEndOf(GdkWindow* window) {
  const int asked = gdk_window_get_events(window);
  if ((asked & GDK_STRUCTURE_MASK) != 0) return;
  gdk_window_set_events(window, static_cast<GdkEventMask>(asked | GDK_STRUCTURE_MASK));
}

}  // namespace

GdkRectangle DesktopArea() {
  GdkWindow* root = UsableRoot();
  if (!root) return {};
  const GdkErrorTrap trap;
  return AreaOf(root);
}

GdkRectangle ActiveDisplayArea() {
  GdkWindow* root = UsableRoot();
  if (!root) return {};
  const GdkErrorTrap trap;
  GdkScreen* screen = gdk_window_get_screen(root);
  const auto active = AdoptGObject(gdk_screen_get_active_window(screen));
  if (!active) return AreaOf(root);
  AskForTheEndOf(active.get());
  GdkRectangle area = {};
  gdk_screen_get_monitor_geometry(screen, gdk_screen_get_monitor_at_window(screen, active.get()),
                                  &area);
  return area;
}

int CountMonitors() {
  GdkWindow* root = UsableRoot();
  return root ? gdk_screen_get_n_monitors(gdk_window_get_screen(root)) : 0;
}

GObjectPtr<GdkPixbuf> CaptureRoot(const GdkRectangle& area) {
  GdkWindow* root = UsableRoot();
  if (!root || area.width <= 0 || area.height <= 0) return nullptr;
  const GdkErrorTrap trap;
  return AdoptGObject(gdk_pixbuf_get_from_window(root, area.x, area.y, area.width, area.height));
}

}  // namespace kiv
