#ifndef SRC_CPP_LINUX_SCREENSHOT_PERMISSION_H_
#define SRC_CPP_LINUX_SCREENSHOT_PERMISSION_H_

#include <optional>
#include <string>

#include "deadline.h"
#include "glib_ptr.h"
#include "process_environment.h"

namespace kiv {

enum class Permission { kUnset, kGranted, kDenied, kAsk };

// What the desktop portal's permission store holds about screenshots taken by this process. An
// entry that cannot be read counts as unset. `portal` is the portal's environment. Nothing, with
// the reason in `error`, when the bus does not say.
std::optional<Permission> StoredPermission(GDBusConnection* bus, const ProcessEnvironment& portal,
                                           const Deadline& deadline, GErrorPtr* error);

// The name of a program in that of its unit of systemd's user instance,
// app[-LAUNCHER]-ID-RANDOM.scope or app[-LAUNCHER]-ID[@RANDOM].service; empty when it has none.
// `cgroups` is the text of a /proc/PID/cgroup.
std::string IdOfUserUnit(const std::string& cgroups);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SCREENSHOT_PERMISSION_H_
