#include "portal_access.h"

#include "portal_backend.h"
#include "portal_names.h"

namespace kiv {

namespace {

// Without a back end the portal does not export the interface, and reading its property is an
// invalid argument.
bool LacksScreenshots(const GError* error) {
  return SaysAbsent(error) || g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS);
}

// The portal chooses the back end by its own environment. This process may have been started with
// another desktop's name or other folders.
ProcessEnvironment EnvironmentOf(GDBusConnection* bus, const std::string& portal,
                                 const ProcessEnvironment& own, const Deadline& deadline) {
  const auto pid = ProcessIdOf(bus, portal, deadline);
  return pid ? ProcessEnvironment::Of(*pid).value_or(own) : own;
}

}  // namespace

std::optional<PortalAccess> FindPortalAccess(GDBusConnection* bus, const ProcessEnvironment& own,
                                             const Deadline& deadline, AbsenceMemory* absence,
                                             GErrorPtr* error) {
  auto owner = OwnerOf(bus, kPortalName, deadline, error);
  if (!owner) return std::nullopt;
  if (absence->Knows(*owner)) return PortalAccess();

  // Starts the portal if it is not running.
  const auto version =
      InterfaceVersion(bus, {kPortalName, kPortalPath, kPortalScreenshot}, deadline, error);
  const bool absent = !version && LacksScreenshots(error->get());
  if (!version && !absent) return std::nullopt;
  if (owner->empty()) owner = OwnerOf(bus, kPortalName, deadline, error);
  if (!owner) return std::nullopt;
  if (absent) {
    error->reset();
    absence->Note(*owner);
    return PortalAccess();
  }
  // The portal has exited meanwhile.
  if (owner->empty()) return PortalAccess();

  const ProcessEnvironment environment = EnvironmentOf(bus, *owner, own, deadline);
  const auto permission = StoredPermission(bus, environment, deadline, error);
  if (!permission) return std::nullopt;
  // After a stored "yes" no portal asks. Otherwise read the back end's version each time: an update
  // may restart the back end alone.
  const bool asks = *permission == Permission::kGranted ||
                    BackendAsks(bus, ScreenshotBackend(environment), deadline);
  return PortalAccess{*owner, asks, *permission};
}

}  // namespace kiv
