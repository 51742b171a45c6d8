#ifndef SRC_CPP_LINUX_PORTAL_ACCESS_H_
#define SRC_CPP_LINUX_PORTAL_ACCESS_H_

#include <optional>
#include <string>

#include "bus_services.h"
#include "deadline.h"
#include "glib_ptr.h"
#include "screenshot_permission.h"

namespace kiv {

// What the desktop portal would do if this process had it take a screenshot now.
struct PortalAccess {
  std::string owner;  // the portal's unique name; empty when there is none that takes screenshots
  bool asks = false;  // the person has a say
  Permission permission =
      Permission::kUnset;  // what the person has said; only where the portal asks

  bool TakesWithoutQuestion() const {
    return !owner.empty() && (!asks || permission == Permission::kGranted);
  }
};

// What does not change before the portal has another owner.
struct PortalMemory {
  AbsenceMemory screenshots;
  AbsenceMemory question;
};

// Finds that out; brings up no question, but may start the portal. `backend` is what
// ScreenshotBackend() tells. Nothing, with the reason in `error`, when the bus does not say before
// the deadline.
std::optional<PortalAccess> FindPortalAccess(const std::string& backend, const Deadline& deadline,
                                             PortalMemory* memory, GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PORTAL_ACCESS_H_
