#ifndef SRC_CPP_LINUX_DBUS_SCREENSHOT_H_
#define SRC_CPP_LINUX_DBUS_SCREENSHOT_H_

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <memory>
#include <string>
#include <vector>

#include "glib_ptr.h"
#include "session_bus.h"

namespace kiv {

struct DesktopSessionData;

// A compositor's own screenshot service on the session bus. Create a backend for one capture and
// drop it afterwards; its destructor deletes the files that the compositor wrote. Main thread only.
// A capture waits for the reply, for the bus's default time-out at most. It returns a new reference
// that the caller owns, or null after logging the reason.
class DbusScreenshot {
 public:
  // Returns a new backend, for GNOME Shell if it answers, else for KWin, or null. The services are
  // probed once per process, or again later if the bus could not be reached. A compositor that
  // starts after the probe is not found.
  static std::shared_ptr<DbusScreenshot> Create();

  // Deletes the files.
  virtual ~DbusScreenshot();
  DbusScreenshot(const DbusScreenshot&) = delete;
  DbusScreenshot& operator=(const DbusScreenshot&) = delete;

  virtual GdkPixbuf* SnapWholeDesktop() = 0;
  virtual GdkPixbuf* SnapActiveDisplay() = 0;
  // Lets the user select an area. Returns at once. Calls OnScreenSnapCompleted once with data->snap
  // and `callback`, possibly before it returns. The request keeps the backend alive until then.
  // `data` must outlive the call. Does nothing unless SnapSelectionSupported().
  virtual void SnapSelection(DesktopSessionData* data, void* callback) = 0;
  virtual bool SnapSelectionSupported() { return false; }

  // Whether the last capture failed because the service refused this program or does not exist.
  bool unavailable() const { return unavailable_; }

  // Returns an unused path in TMPDIR or /tmp for the compositor to write to, or an empty string.
  // Creates no file.
  std::string GetTmpFileName() const;
  // Returns the decoded picture, or null after logging the reason. Does not delete the file.
  GdkPixbuf* LoadImage(const std::string& path) const;

 protected:
  DbusScreenshot() = default;

  // Returns the reply, or null after logging the reason.
  GVariantPtr Call(const BusObject& object, const char* method, GVariant* parameters,
                   const char* reply_type);

  std::vector<std::string> tmp_files_;  // written by the compositor, deleted with the backend

 private:
  bool unavailable_ = false;
};

// Logs why there is no picture. Enters JavaScript.
void LogScreenshotFailure(const char* message);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_DBUS_SCREENSHOT_H_
