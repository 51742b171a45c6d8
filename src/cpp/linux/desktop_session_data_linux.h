#ifndef SRC_CPP_LINUX_DESKTOP_SESSION_DATA_LINUX_H_
#define SRC_CPP_LINUX_DESKTOP_SESSION_DATA_LINUX_H_

#include <memory>

#include "../screen_snap.h"
#include "active_window.h"
#include "idle_time.h"
#include "input_activity.h"
#include "interval_timer.h"
#include "x_connection.h"

struct _GDBusConnection;
struct _GVariant;

namespace Nan {
class Callback;
}

namespace kiv {

class DesktopSessionAgent;
class UserSelectionImpLinux;

// The agent's state. Counters, the snapshot and the interval callback outlive a teardown.
struct DesktopSessionData : InputCounters, ActiveWindowAtoms {
  OptionalSeconds last_input;
  OptionalSeconds last_key_press;    // never known on this platform
  OptionalSeconds last_mouse_click;  // never known on this platform
  OptionalSeconds last_mouse_move;   // never known on this platform
  ScreenSnap snap;                   // published in one step; no scratch space
  std::unique_ptr<Nan::Callback> interval_callback;
  bool is_x11 = false;
  bool is_wayland = false;     // any session that is not X11
  bool screen_locked = false;  // the last lock signal said so
  int xi_opcode = 0;
  XConnection x_connection;
  IntervalTimer interval_timer;
  _GDBusConnection* bus = nullptr;  // one reference while subscribed
  DesktopSessionAgent* agent = nullptr;
  std::shared_ptr<UserSelectionImpLinux> selection;  // never null
  bool dbus_subscribed = false;
  unsigned subscription_ids[4] = {};

  DesktopSessionData();
  ~DesktopSessionData();
  DesktopSessionData(const DesktopSessionData&) = delete;
  DesktopSessionData& operator=(const DesktopSessionData&) = delete;

  // The agent's own connection to the X server while it is there.
  _XDisplay* display() const { return x_connection.display(); }

  // Decides is_x11 or is_wayland from the environment, once.
  void define_session_type();
  // Starts the overlay; `context` is the request's, which the overlay's completion takes back.
  void SnapSelection(void* context);
  // Closes, in this order, the timer, the session bus connection for everybody who shares it, and
  // the X connection.
  void Shutdown();
  // The same, but only lets go of the session bus connection, which the host may share.
  void Release();
  // Subscribes to the lock signals; without a session bus nothing happens.
  void Subscribe();
  // Removes the subscriptions; the connection, which the host may share, stays open.
  void Unsubscribe();
  // A lock signal on the session bus; user_data is the agent.
  static void OnDBusSignalReceived(_GDBusConnection* connection, const char* sender_name,
                                   const char* object_path, const char* interface_name,
                                   const char* signal_name, _GVariant* parameters, void* user_data);
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_DESKTOP_SESSION_DATA_LINUX_H_
