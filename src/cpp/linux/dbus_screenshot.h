#ifndef SRC_CPP_LINUX_DBUS_SCREENSHOT_H_
#define SRC_CPP_LINUX_DBUS_SCREENSHOT_H_

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gio/gio.h>

#include <memory>
#include <string>
#include <vector>

namespace kiv {

struct DesktopSessionData;

// A compositor's screenshot service on the session bus. Whoever wants a picture creates a backend,
// asks it and drops it; the files that the compositor wrote go with it. Main thread only. A capture
// blocks until the service has answered, at most for the bus's default time-out. A picture is a new
// reference of the caller's; null means that there is none, and the reason has been logged.
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

  // A path for the compositor to write to, in TMPDIR or /tmp; empty when there is none. No file is
  // made.
  std::string GetTmpFileName() const;
  // The decoded picture, or null after a log line. The file stays.
  GdkPixbuf* LoadImage(const std::string& path) const;

 protected:
  DbusScreenshot() = default;

  std::vector<std::string> tmp_files_;  // written by the compositor, deleted with the backend
};

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

// The path in a reply of type "(s)".
std::string ReadPath(GVariant* reply);

// KWin: chooses the file itself and tells its name. "Active display" is the screen that has the
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

#endif  // SRC_CPP_LINUX_DBUS_SCREENSHOT_H_
