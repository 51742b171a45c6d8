#include "permission_state.h"

namespace kiv {

namespace {

constexpr Deadline::Milliseconds kPatience(3000);

}  // namespace

PermissionState ReadPermissionState(const SessionFacts& session, PortalMemory* memory) {
  if (session.is_x11) return {"not needed", {}};
  // Held, so that the calls share one connection.
  GErrorPtr error;
  const auto bus = ConnectSessionBus(&error);
  if (!bus) return {"unavailable", {}};
  const auto access = FindPortalAccess(session.backend, Deadline::In(kPatience), memory, &error);
  if (!access || access->owner.empty()) return {"unavailable", {}};
  if (!access->asks) return {"not needed", {}};
  if (access->permission == Permission::kGranted) return {"granted", {}};
  if (access->permission == Permission::kDenied) return {"denied", {}};
  return {"unknown", access->owner};
}

}  // namespace kiv
