#ifndef SRC_CPP_LINUX_DBUS_IDLETIME_H_
#define SRC_CPP_LINUX_DBUS_IDLETIME_H_

namespace kiv {

class GnomeIdleTime {
 public:
  // Asks GNOME's Mutter for the milliseconds since the last input. Returns false, logs one line and
  // leaves idle_ms unchanged when there is no valid reply. Waits for the bus's default time-out at
  // most.
  static bool GetIdleTime(long long& idle_ms);
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_DBUS_IDLETIME_H_
