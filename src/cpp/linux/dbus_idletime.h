#ifndef SRC_CPP_LINUX_DBUS_IDLETIME_H_
#define SRC_CPP_LINUX_DBUS_IDLETIME_H_

namespace kiv {

class GnomeIdleTime {
 public:
  // Milliseconds since the last input as GNOME Mutter knows it. False, with one line in the log and
  // idle_ms untouched, when it does not answer or answers something else. Waits for the answer, at
  // most the bus's default time-out.
  static bool GetIdleTime(long long& idle_ms);
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_DBUS_IDLETIME_H_
