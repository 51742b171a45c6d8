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

// The module's one tie to the desktop session. Every operation runs on the main thread. Failures
// show in results: no operation throws.
class DesktopSessionAgent {
 public:
  DesktopSessionAgent();
  ~DesktopSessionAgent();
  DesktopSessionAgent(const DesktopSessionAgent&) = delete;
  DesktopSessionAgent& operator=(const DesktopSessionAgent&) = delete;

  // Releases what an earlier call made, then connects. 0, or 1 at the first step that fails; what
  // was made until then works and is released by Teardown.
  int Setup();
  // May be called at any time and any number of times.
  void Teardown();
  // Lets go of everything that needs the runtime or its loop, at the runtime's end.
  void OnRuntimeEnd();

  bool IsWayland() const { return data_.is_wayland; }
  // Null: not known on this platform.
  const ProcessHandlesInfo* GetProcessHandlesInfo(unsigned long pid) const;

  // Clears the four times, then asks how long the user has been idle.
  void UpdateLastTimes();
  // Calls `callback` every so many milliseconds, in place of the one before; 0 or less stops, and
  // so does an empty callback. Without a set-up the callback is only stored.
  void SetInterval(std::unique_ptr<Nan::Callback> callback, int milliseconds);

  // Take a picture, publish it to the record and return that; width 0 and height 0 when there is
  // none. With limit_size the picture is made to fit 1920 x 1080.
  ScreenSnap* SnapWholeDesktop(bool jpeg, bool limit_size);
  ScreenSnap* SnapActiveDisplay(bool jpeg, bool limit_size);
  // Lets the person drag out a rectangle. The record holds the title and process when this returns;
  // the picture comes with the completion, which may already have happened.
  ScreenSnap* SnapSelection(void* context);

  // The guard of selection snapshots. False when one is pending or the lock is taken; never waits.
  bool SnapGuardIsFree();
  void TakeSnapGuard();
  void ReleaseSnapGuard();

  // As LaunchUpgrade.
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
