#ifndef SRC_CPP_LINUX_GNOME_SCREENSHOT_H_
#define SRC_CPP_LINUX_GNOME_SCREENSHOT_H_

#include "dbus_screenshot.h"

namespace kiv {

// GNOME Shell: writes to the file it is told, flashes the screen, leaves the pointer out. "Active
// display" is the whole desktop.
class GnomeDbusScreenshot : public DbusScreenshot,
                            public std::enable_shared_from_this<GnomeDbusScreenshot> {
 public:
  GdkPixbuf* SnapWholeDesktop() override;
  GdkPixbuf* SnapActiveDisplay() override;
  // Only on a backend that a shared pointer holds.
  void SnapSelection(DesktopSessionData* data, void* callback) override;
  bool SnapSelectionSupported() override { return true; }

  // The reply to the selection; user_data is the request, which ends here.
  static void select_area_done(GObject* source, GAsyncResult* result, void* user_data);
  // Captures the area and completes the selection.
  void ScreenshotArea(int x, int y, int width, int height, DesktopSessionData* data,
                      void* callback);
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_GNOME_SCREENSHOT_H_
