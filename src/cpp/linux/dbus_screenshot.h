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

// A compositor's own screenshot service on the session bus. Whoever wants a picture creates a
// backend, asks it and drops it; the backend deletes the files that the compositor wrote. Main
// thread only. A capture blocks until the service has answered, at most for the bus's default
// time-out. A picture is a new reference that the caller owns; null means that there is none, and
// the reason has been logged.
class DbusScreenshot {
 public:
  // A new backend for the service found, GNOME Shell before KWin; empty when there is none. The
  // session is probed once per process, and again only while the bus cannot be reached: a
  // compositor that starts later is not noticed.
  static std::shared_ptr<DbusScreenshot> Create();

  // Deletes the files.
  virtual ~DbusScreenshot();
  DbusScreenshot(const DbusScreenshot&) = delete;
  DbusScreenshot& operator=(const DbusScreenshot&) = delete;

  virtual GdkPixbuf* SnapWholeDesktop() = 0;
  virtual GdkPixbuf* SnapActiveDisplay() = 0;
  // Has the user select an area and returns at once. Ends in one OnScreenSnapCompleted with
  // data->snap and `callback`, possibly before it returns; the backend stays alive until then,
  // whoever drops it. `data` outlives that call. Without SnapSelectionSupported: nothing at all.
  virtual void SnapSelection(DesktopSessionData* data, void* callback) = 0;
  virtual bool SnapSelectionSupported() { return false; }

  // Whether the last capture failed because the service does not let this program in, or is not
  // there after all.
  bool unavailable() const { return unavailable_; }

  // A path for the compositor to write to, in TMPDIR or /tmp; empty when there is none. No file is
  // made.
  std::string GetTmpFileName() const;
  // The decoded picture, or null after a log line. The file stays.
  GdkPixbuf* LoadImage(const std::string& path) const;

 protected:
  DbusScreenshot() = default;

  // The reply, or null after a log line.
  GVariantPtr Call(const BusObject& object, const char* method, GVariant* parameters,
                   const char* reply_type);

  std::vector<std::string> tmp_files_;  // written by the compositor, deleted with the backend

 private:
  bool unavailable_ = false;
};

// Logs why there is no picture, which enters JavaScript.
void LogScreenshotFailure(const char* message);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_DBUS_SCREENSHOT_H_
