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

// The agent's state. Teardown keeps the counters, the snapshot and the interval callback.
struct DesktopSessionData : InputCounters, ActiveWindowAtoms {
  OptionalSeconds last_input;
  OptionalSeconds last_key_press;    // always unknown on this platform
  OptionalSeconds last_mouse_click;  // always unknown on this platform
  OptionalSeconds last_mouse_move;   // always unknown on this platform
  ScreenSnap snap;                   // published in one step, never filled in place
  std::unique_ptr<Nan::Callback> interval_callback;
  bool is_x11 = false;
  bool is_wayland = false;     // any session that is not X11
  bool screen_locked = false;  // according to the last lock signal
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

  // The agent's own X connection. Null without one or when the server is gone.
  _XDisplay* display() const { return x_connection.display(); }

  // Sets is_x11 or is_wayland from the environment, once.
  void define_session_type();
  // Opens the overlay. Its completion deletes `context`.
  void SnapSelection(void* context);
  // Closes the timer, then the session bus connection (for all who share it), then the X
  // connection.
  void Shutdown();
  // The same, but only drops the reference to the bus connection, which the host may share.
  void Release();
  // Subscribes to the lock signals. Does nothing without a session bus.
  void Subscribe();
  // Removes the subscriptions. The connection stays open, because the host may share it.
  void Unsubscribe();
  // Handles a lock signal; user_data is the agent.
  static void OnDBusSignalReceived(_GDBusConnection* connection, const char* sender_name,
                                   const char* object_path, const char* interface_name,
                                   const char* signal_name, _GVariant* parameters, void* user_data);
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_DESKTOP_SESSION_DATA_LINUX_H_
