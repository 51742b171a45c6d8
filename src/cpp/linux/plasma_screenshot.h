#ifndef SRC_CPP_LINUX_PLASMA_SCREENSHOT_H_
#define SRC_CPP_LINUX_PLASMA_SCREENSHOT_H_

#include "dbus_screenshot.h"

namespace kiv {

// Reads the path in a reply of type "(s)".
std::string ReadPath(GVariant* reply);

// KWin chooses the file itself and returns its name. Its "active display" is the screen with the
// number of GDK's default screen. It has no selection.
class PlasmaDbusScreenshot : public DbusScreenshot {
 public:
  GdkPixbuf* SnapWholeDesktop() override;
  GdkPixbuf* SnapActiveDisplay() override;
  void SnapSelection(DesktopSessionData* data, void* callback) override;

 private:
  GdkPixbuf* Capture(const char* method, GVariant* parameters);
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PLASMA_SCREENSHOT_H_
