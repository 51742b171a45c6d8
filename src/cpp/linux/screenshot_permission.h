#ifndef SRC_CPP_LINUX_SCREENSHOT_PERMISSION_H_
#define SRC_CPP_LINUX_SCREENSHOT_PERMISSION_H_

#include <optional>
#include <string>

#include "deadline.h"
#include "glib_ptr.h"
#include "process_environment.h"

namespace kiv {

enum class Permission { kUnset, kGranted, kDenied, kAsk };

// Looks up this process's permission for screenshots in the portal's permission store. An entry of
// another shape counts as unset. `portal` is the portal's environment. Returns nothing, with the
// reason in `error`, when the call fails.
std::optional<Permission> StoredPermission(GDBusConnection* bus, const ProcessEnvironment& portal,
                                           const Deadline& deadline, GErrorPtr* error);

// Returns the application id in the name of a unit of systemd's user instance,
// app[-LAUNCHER]-ID-RANDOM.scope or app[-LAUNCHER]-ID[@RANDOM].service, or an empty string.
// `cgroups` is the text of a /proc/PID/cgroup.
std::string IdOfUserUnit(const std::string& cgroups);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SCREENSHOT_PERMISSION_H_
