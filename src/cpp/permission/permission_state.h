#ifndef SRC_CPP_PERMISSION_PERMISSION_STATE_H_
#define SRC_CPP_PERMISSION_PERMISSION_STATE_H_

#include <string>

#include "../linux/portal_access.h"
#include "../linux/portal_backend.h"
#include "../linux/session_type.h"

namespace kiv {

// Whether this process may take screenshots here, as JavaScript learns it.
struct PermissionState {
  const char* text;    // "granted", "denied", "unknown", "not needed" or "unavailable"
  std::string portal;  // the unique name of the portal to ask; empty unless the state is "unknown"
};

// What the environment says about the session; made on the main thread, whose it is.
struct SessionFacts {
  bool is_x11 = IsX11Session();
  std::string backend = ScreenshotBackend();
};

// Blocks for three seconds at most, for five when the session bus does not answer. On any thread.
PermissionState ReadPermissionState(const SessionFacts& session, PortalMemory* memory);

}  // namespace kiv

#endif  // SRC_CPP_PERMISSION_PERMISSION_STATE_H_
