#ifndef SRC_CPP_LINUX_PORTAL_BACKEND_H_
#define SRC_CPP_LINUX_PORTAL_BACKEND_H_

#include <gio/gio.h>

#include <string>

#include "deadline.h"
#include "process_environment.h"

namespace kiv {

// The bus name of the back end through which a portal with this environment takes screenshots,
// found in the portal's own files; empty when they do not tell.
std::string ScreenshotBackend(const ProcessEnvironment& environment);

// Whether the portal asks the person before it has this back end take a screenshot. True, too, when
// that cannot be found out. May start the back end.
bool BackendAsks(GDBusConnection* bus, const std::string& bus_name, const Deadline& deadline);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PORTAL_BACKEND_H_
