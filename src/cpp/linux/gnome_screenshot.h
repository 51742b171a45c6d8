#ifndef SRC_CPP_LINUX_GNOME_SCREENSHOT_H_
#define SRC_CPP_LINUX_GNOME_SCREENSHOT_H_

#include "dbus_screenshot.h"

namespace kiv {

// GNOME Shell writes to the given file, flashes the screen and leaves out the pointer. Its "active
// display" is the whole desktop.
class GnomeDbusScreenshot : public DbusScreenshot,
                            public std::enable_shared_from_this<GnomeDbusScreenshot> {
 public:
  GdkPixbuf* SnapWholeDesktop() override;
  GdkPixbuf* SnapActiveDisplay() override;
  // The backend must be owned by a shared pointer.
  void SnapSelection(DesktopSessionData* data, void* callback) override;
  bool SnapSelectionSupported() override { return true; }

  // Handles the reply to the selection; user_data is the request, which is deleted.
  static void select_area_done(GObject* source, GAsyncResult* result, void* user_data);
  // Captures the area and completes the selection.
  void ScreenshotArea(int x, int y, int width, int height, DesktopSessionData* data,
                      void* callback);
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_GNOME_SCREENSHOT_H_
