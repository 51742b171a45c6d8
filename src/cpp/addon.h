#ifndef SRC_CPP_ADDON_H_
#define SRC_CPP_ADDON_H_

#include "linux/desktop_session_agent_linux.h"

namespace kiv {

// The one agent of the process, alive from load to unload.
DesktopSessionAgent& Agent();

}  // namespace kiv

#endif  // SRC_CPP_ADDON_H_
