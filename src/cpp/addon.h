#ifndef SRC_CPP_ADDON_H_
#define SRC_CPP_ADDON_H_

#include "linux/desktop_session_agent_linux.h"

namespace kiv {

// Returns the process's only agent, which is never destroyed.
DesktopSessionAgent& Agent();

}  // namespace kiv

#endif  // SRC_CPP_ADDON_H_
