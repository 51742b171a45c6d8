#ifndef SRC_CPP_LINUX_DESKTOP_SESSION_AGENT_LINUX_H_
#define SRC_CPP_LINUX_DESKTOP_SESSION_AGENT_LINUX_H_

#include <uv.h>

#include <cstdint>
#include <memory>
#include <string>

#include "desktop_session_data_linux.h"

namespace kiv {

class ScreenLockMonitor;
enum class CaptureArea;

struct ProcessHandlesInfo {
  uint64_t handles;
  uint64_t gdi_objects;
  uint64_t gui_user_objects;
};

// The module's interface to the desktop session. All operations run on the main thread. They report
// failures through results and never throw.
class DesktopSessionAgent {
 public:
  DesktopSessionAgent();
  ~DesktopSessionAgent();
  DesktopSessionAgent(const DesktopSessionAgent&) = delete;
  DesktopSessionAgent& operator=(const DesktopSessionAgent&) = delete;

  // Releases what an earlier call acquired, then connects. Returns 0, or 1 at the first step that
  // fails. The earlier steps' resources then keep working until Teardown.
  int Setup();
  // May be called at any time and any number of times.
  void Teardown();
  // Releases everything that needs the runtime or its loop. Called when the runtime ends.
  void OnRuntimeEnd();

  bool IsWayland() const { return data_.is_wayland; }
  // Null: not supported on this platform.
  const ProcessHandlesInfo* GetProcessHandlesInfo(unsigned long pid) const;

  // Clears the four times, then reads how long the user has been idle.
  void UpdateLastTimes();
  // Calls `callback` every `milliseconds`, instead of the previous one. 0 or less, or an empty
  // callback, stops the timer. Before Setup the callback is only stored.
  void SetInterval(std::unique_ptr<Nan::Callback> callback, int milliseconds);

  // Take a picture, publish it to the record and return the record. Width and height are 0 when
  // there is no picture. With limit_size the picture is scaled down to fit 1920 x 1080.
  ScreenSnap* SnapWholeDesktop(bool jpeg, bool limit_size);
  ScreenSnap* SnapActiveDisplay(bool jpeg, bool limit_size);
  // Lets the user select a rectangle. On return the record holds the title and process. The picture
  // arrives with the completion, which may run before the return.
  ScreenSnap* SnapSelection(void* context);

  // Guards selection snapshots. False while one is pending or the mutex is locked. Never waits.
  bool SnapGuardIsFree();
  void TakeSnapGuard();
  void ReleaseSnapGuard();

  // See LaunchUpgrade.
  int Upgrade(const std::string& path, bool relaunch) const;

  bool snap_ready_ = true;  // no selection is pending; guarded by mutex_
  uv_mutex_t mutex_;
  DesktopSessionData data_;
  ScreenLockMonitor* screen_lock_monitor_ = nullptr;  // owned by its JavaScript object

 private:
  int Connect();
  ScreenSnap* Snap(CaptureArea area, bool jpeg, bool limit_size);
  void SetSnapReady(bool ready);
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_DESKTOP_SESSION_AGENT_LINUX_H_
