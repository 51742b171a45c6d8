#ifndef SRC_CPP_LINUX_DESKTOP_SESSION_AGENT_LINUX_H_
#define SRC_CPP_LINUX_DESKTOP_SESSION_AGENT_LINUX_H_

#include <uv.h>

#include <cstdint>
#include <memory>
#include <string>

#include "../screen_snap.h"
#include "../uv_handles.h"

struct _GDBusConnection;
struct _GVariant;
struct _XDisplay;

namespace Nan {
class Callback;
}

namespace kiv {

class DesktopSessionAgent;
class ScreenLockMonitor;
class UserSelectionImpLinux;

// Seconds, where they are known.
struct OptionalSeconds {
  bool set = false;
  uint32_t value = 0;
};

// What tells one raw press from the next; all zero after a release.
struct RawPress {
  int type = 0;
  int detail = 0;
  int source = 0;
  unsigned long time = 0;
  bool operator==(const RawPress&) const = default;
};

struct ProcessHandlesInfo {
  uint64_t handles;
  uint64_t gdi_objects;
  uint64_t gui_user_objects;
};

// The agent's state. Its fields are read and written by the operations of this folder, all on the
// main thread. Counters, the snapshot and the interval callback outlive a teardown.
struct DesktopSessionData {
  uint64_t keyboard_activity = 0;  // raw key presses since load
  uint64_t mouse_activity = 0;     // raw button presses since load, wheel bursts counted once
  OptionalSeconds last_input;
  OptionalSeconds last_key_press;    // never known on this platform
  OptionalSeconds last_mouse_click;  // never known on this platform
  OptionalSeconds last_mouse_move;   // never known on this platform
  ScreenSnap snap;
  std::unique_ptr<Nan::Callback> interval_callback;
  bool is_x11 = false;
  _XDisplay* display = nullptr;  // the agent's own connection
  bool display_lost = false;     // the server is gone; `display` only waits to be closed
  unsigned long atom_net_active_window = 0;
  unsigned long atom_net_wm_pid = 0;
  unsigned long atom_net_wm_name = 0;
  unsigned long atom_wm_name = 0;  // "_WM_NAME", not the older "WM_NAME"
  int xi_opcode = 0;
  int timer_fd = -1;
  bool wheel_seen = false;
  uint64_t last_wheel_time = 0;  // nanoseconds of uv_hrtime
  RawPress last_press;
  UvPoll x_poll;
  UvWake x_wake;  // for events that a round trip left in Xlib's queue
  UvPoll timer_poll;
  bool is_wayland = false;          // any session that is not X11
  _GDBusConnection* bus = nullptr;  // one reference while subscribed
  DesktopSessionAgent* agent = nullptr;
  std::shared_ptr<UserSelectionImpLinux> selection;  // never null
  bool dbus_subscribed = false;
  unsigned subscription_ids[4] = {};
  bool x_poll_active = false;
  bool timer_poll_active = false;

  DesktopSessionData();
  ~DesktopSessionData();
  DesktopSessionData(const DesktopSessionData&) = delete;
  DesktopSessionData& operator=(const DesktopSessionData&) = delete;

  // Decides is_x11 or is_wayland from the environment, once.
  void define_session_type();
  // Starts the overlay; `context` is the request's, which the overlay's completion takes back.
  void SnapSelection(void* context);
  // Removes the lock subscriptions, closes the session bus connection and stops the polls.
  void Shutdown();
  // The same without closing the connection, which the host may share.
  void ReleaseSubscriptionsAndPolls();
  // Close the timer's descriptor and the X connection, each with its poll.
  void ReleaseTimer();
  void ReleaseDisplay();
  // A lock signal on the session bus; user_data is the agent.
  static void OnDBusSignalReceived(_GDBusConnection* connection, const char* sender_name,
                                   const char* object_path, const char* interface_name,
                                   const char* signal_name, _GVariant* parameters, void* user_data);
  bool HasDisplay() const { return display && !display_lost; }
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

  // Take a picture into the record and return it; width 0 and height 0 when there is none. With
  // limit_size the picture is made to fit 1920 x 1080.
  ScreenSnap* SnapWholeDesktop(bool jpeg, bool limit_size);
  ScreenSnap* SnapActiveDisplay(bool jpeg, bool limit_size);
  // Lets the person drag out a rectangle. The record holds the title and process when this returns;
  // the picture comes with the completion, which may already have happened.
  ScreenSnap* SnapSelection(void* context);

  // The guard of selection snapshots. False when one is pending or the lock is taken; never waits.
  bool SnapGuardIsFree();
  void TakeSnapGuard();
  void ReleaseSnapGuard();

  // Starts the script that installs the package once this process has ended, and then the
  // application when `relaunch` is true. 0, or -1 when the path is refused or no process can be
  // made; a log line says why. Does not wait for the script: one that ends before this process
  // stays a zombie until then.
  int Upgrade(const std::string& path, bool relaunch) const;

  bool snap_ready_ = true;  // no selection is pending; guarded by mutex_
  uv_mutex_t mutex_;
  DesktopSessionData data_;
  ScreenLockMonitor* screen_lock_monitor_ = nullptr;  // owned by its JavaScript object

 private:
  int Connect();
  void SetSnapReady(bool ready);
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_DESKTOP_SESSION_AGENT_LINUX_H_
