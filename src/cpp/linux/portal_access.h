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

// What the desktop portal would do if this process had it take a screenshot now.
struct PortalAccess {
  std::string owner;  // the portal's unique name; empty when there is none that takes screenshots
  bool asks = false;  // the person has a say; true where that was not looked up because of a "yes"
  Permission permission = Permission::kUnset;  // what the person has said

  bool TakesWithoutQuestion() const {
    return !owner.empty() && (!asks || permission == Permission::kGranted);
  }
};

// Finds that out; brings up no question, but may start the portal. Any thread. `own` is this
// process's environment, which stands in for the portal's where that cannot be read. `absence`
// remembers a portal that takes no screenshots. Nothing, with the reason in `error`, when the bus
// does not say before the deadline.
std::optional<PortalAccess> FindPortalAccess(GDBusConnection* bus, const ProcessEnvironment& own,
                                             const Deadline& deadline, AbsenceMemory* absence,
                                             GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PORTAL_ACCESS_H_
