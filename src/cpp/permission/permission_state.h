#ifndef SRC_CPP_PERMISSION_PERMISSION_STATE_H_
#define SRC_CPP_PERMISSION_PERMISSION_STATE_H_

#include <optional>
#include <string>

#include "../linux/portal_access.h"
#include "../linux/process_environment.h"
#include "../linux/session_type.h"

namespace kiv {

// Whether this process may take screenshots here.
enum class PermissionState { kGranted, kDenied, kUnknown, kNotNeeded, kUnavailable };

// Facts from the environment. Create it on the main thread, because JavaScript may change them.
struct SessionFacts {
  bool is_x11 = IsX11Session();
  ProcessEnvironment environment = ProcessEnvironment::Own();
};

struct PermissionReading {
  PermissionState state = PermissionState::kUnavailable;
  std::optional<std::string>
      portal;  // the portal to ask, by its unique name, when the state is unknown
};

// Blocks for three seconds at most. `bus` is null without a session bus. Any thread.
PermissionReading ReadPermissionState(const SessionFacts& session, GDBusConnection* bus,
                                      AbsenceMemory* absence);

}  // namespace kiv

#endif  // SRC_CPP_PERMISSION_PERMISSION_STATE_H_
