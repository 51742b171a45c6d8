#ifndef SRC_CPP_LINUX_PLASMA_SCREENSHOT_H_
#define SRC_CPP_LINUX_PLASMA_SCREENSHOT_H_

#include "dbus_screenshot.h"

namespace kiv {

// The path in a reply of type "(s)".
std::string ReadPath(GVariant* reply);

// KWin: chooses the file itself and returns its name. "Active display" is the screen that has the
// number of GDK's default screen. There is no selection.
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
