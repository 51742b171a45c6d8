#include "gdk_capture.h"

#include <X11/Xatom.h>
#include <gdk/gdkx.h>

#include <optional>

#include "tools_x11_linux.h"

namespace kiv {

namespace {

// Windows die and monitors change between two of GDK's requests; its own handler would end the
// process.
class GdkErrorTrap {
 public:
  GdkErrorTrap() { gdk_error_trap_push(); }
  ~GdkErrorTrap() { gdk_error_trap_pop_ignored(); }
  GdkErrorTrap(const GdkErrorTrap&) = delete;
  GdkErrorTrap& operator=(const GdkErrorTrap&) = delete;
};

// GDK's default root window, or null where it has none that X could give a picture of.
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

// In points from the root window's corner; nothing when no window is active. Through Xlib: for
// every window that gdk_screen_get_active_window has named GDK 3.24 keeps a GdkWindow until it
// hears of the window's end, which nobody asks the server to tell it. A test counts them.
std::optional<GdkRectangle> ActiveWindowArea(GdkScreen* screen, int scale) {
  if (!gdk_x11_screen_supports_net_wm_hint(screen,
                                           gdk_atom_intern_static_string("_NET_ACTIVE_WINDOW"))) {
    return std::nullopt;
  }
  Display* display = GDK_SCREEN_XDISPLAY(screen);
  const Window root = GDK_WINDOW_XID(gdk_screen_get_root_window(screen));
  const auto active =
      tools_x11::read_property(display, root, gdk_x11_get_xatom_by_name("_NET_ACTIVE_WINDOW"));
  const Window window = active.status == Success ? active.FirstItem() : None;
  if (active.type != XA_WINDOW || active.format != 32 || window == None) return std::nullopt;
  Window ignored = None;
  int x = 0;
  int y = 0;
  unsigned width = 0;
  unsigned height = 0;
  unsigned border = 0;
  unsigned depth = 0;
  if (!XGetGeometry(display, window, &ignored, &x, &y, &width, &height, &border, &depth) ||
      !XTranslateCoordinates(display, window, root, 0, 0, &x, &y, &ignored)) {
    return std::nullopt;
  }
  return GdkRectangle{x / scale, y / scale, static_cast<int>(width) / scale,
                      static_cast<int>(height) / scale};
}

// The monitor that shows most of the area, or the one nearest to its middle.
int MonitorAt(GdkScreen* screen, const GdkRectangle& area) {
  int best = -1;
  int most = 0;
  for (int i = 0; i < gdk_screen_get_n_monitors(screen); ++i) {
    GdkRectangle monitor = {};
    gdk_screen_get_monitor_geometry(screen, i, &monitor);
    GdkRectangle common = {};
    if (!gdk_rectangle_intersect(&area, &monitor, &common)) continue;
    if (common.width * common.height <= most) continue;
    most = common.width * common.height;
    best = i;
  }
  if (best >= 0) return best;
  return gdk_screen_get_monitor_at_point(screen, area.x + area.width / 2, area.y + area.height / 2);
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
  const auto active = ActiveWindowArea(screen, gdk_window_get_scale_factor(root));
  if (!active) return AreaOf(root);
  GdkRectangle area = {};
  gdk_screen_get_monitor_geometry(screen, MonitorAt(screen, *active), &area);
  return area;
}

GObjectPtr<GdkPixbuf> CaptureRoot(const GdkRectangle& area) {
  GdkWindow* root = UsableRoot();
  if (!root || area.width <= 0 || area.height <= 0) return nullptr;
  const GdkErrorTrap trap;
  return AdoptGObject(gdk_pixbuf_get_from_window(root, area.x, area.y, area.width, area.height));
}

}  // namespace kiv
