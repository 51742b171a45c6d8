#ifndef SRC_CPP_LINUX_PORTAL_ACCESS_H_
#define SRC_CPP_LINUX_PORTAL_ACCESS_H_

#include <optional>
#include <string>

#include "bus_services.h"
#include "deadline.h"
#include "glib_ptr.h"
#include "process_environment.h"
#include "screenshot_permission.h"

namespace kiv {

// What the desktop portal would do if this process requested a screenshot now.
struct PortalAccess {
  std::string owner;  // the portal's unique name; empty when no portal takes screenshots
  bool asks = false;  // the portal may ask the person; not looked up (true) after a stored "yes"
  Permission permission = Permission::kUnset;  // the stored permission

  bool TakesWithoutQuestion() const {
    return !owner.empty() && (!asks || permission == Permission::kGranted);
  }
};

// Never shows a question, but may start the portal. Any thread. `own` is this process's
// environment, the fallback when the portal's cannot be read. `absence` remembers a portal that
// takes no screenshots. Returns nothing, with the reason in `error`, when a call fails or the
// deadline passes.
std::optional<PortalAccess> FindPortalAccess(GDBusConnection* bus, const ProcessEnvironment& own,
                                             const Deadline& deadline, AbsenceMemory* absence,
                                             GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PORTAL_ACCESS_H_
