#include "portal_access.h"

#include "portal_backend.h"
#include "portal_names.h"

namespace kiv {

namespace {

// A portal without a back end for it does not have the interface, whose property is then an invalid
// argument.
bool LacksScreenshots(const GError* error) {
  return SaysAbsent(error) || g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS);
}

}  // namespace

std::optional<PortalAccess> FindPortalAccess(const std::string& backend, const Deadline& deadline,
                                             PortalMemory* memory, GErrorPtr* error) {
  auto owner = OwnerOf(kPortalName, deadline, error);
  if (!owner) return std::nullopt;
  if (memory->screenshots.Knows(*owner)) return PortalAccess();
  if (memory->question.Knows(*owner)) return PortalAccess{*owner};

  // Starts a portal that does not run yet.
  const auto version =
      InterfaceVersion({kPortalName, kPortalPath, kPortalScreenshot}, deadline, error);
  const bool absent = !version && LacksScreenshots(error->get());
  if (!version && !absent) return std::nullopt;
  if (owner->empty()) owner = OwnerOf(kPortalName, deadline, error);
  if (!owner) return std::nullopt;
  if (absent) {
    error->reset();
    memory->screenshots.Note(*owner);
    return PortalAccess();
  }

  PortalAccess access = {*owner, BackendAsks(backend, deadline)};
  if (!access.asks) {
    memory->question.Note(*owner);
    return access;
  }
  const auto permission = StoredPermission(deadline, error);
  if (!permission) return std::nullopt;
  access.permission = *permission;
  return access;
}

}  // namespace kiv
