#ifndef SRC_CPP_PERMISSION_PERMISSION_STATE_H_
#define SRC_CPP_PERMISSION_PERMISSION_STATE_H_

#include <string>

#include "../linux/portal_access.h"

namespace kiv {

// Whether this process may take screenshots here, as JavaScript learns it.
struct PermissionState {
  const char* text;    // "granted", "denied", "unknown", "not needed" or "unavailable"
  std::string portal;  // the unique name of the portal to ask; empty unless the state is "unknown"
};

// Blocks for three seconds at most, for five when the session bus does not answer. On any thread;
// `backend` is what ScreenshotBackend() tells.
PermissionState ReadPermissionState(const std::string& backend, PortalMemory* memory);

}  // namespace kiv

#endif  // SRC_CPP_PERMISSION_PERMISSION_STATE_H_
