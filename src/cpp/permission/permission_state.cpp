#include "permission_state.h"

namespace kiv {

namespace {

constexpr Deadline::Milliseconds kPatience(3000);

}  // namespace

PermissionReading ReadPermissionState(const SessionFacts& session, GDBusConnection* bus,
                                      AbsenceMemory* absence) {
  if (session.is_x11) return {PermissionState::kNotNeeded, {}};
  if (!bus) return {PermissionState::kUnavailable, {}};
  GErrorPtr error;
  const auto access =
      FindPortalAccess(bus, session.environment, Deadline::In(kPatience), absence, &error);
  if (!access || access->owner.empty()) return {PermissionState::kUnavailable, {}};
  if (!access->asks) return {PermissionState::kNotNeeded, {}};
  if (access->permission == Permission::kGranted) return {PermissionState::kGranted, {}};
  if (access->permission == Permission::kDenied) return {PermissionState::kDenied, {}};
  return {PermissionState::kUnknown, access->owner};
}

}  // namespace kiv
