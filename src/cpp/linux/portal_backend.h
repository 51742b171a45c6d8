#ifndef SRC_CPP_LINUX_PORTAL_BACKEND_H_
#define SRC_CPP_LINUX_PORTAL_BACKEND_H_

#include <gio/gio.h>

#include <string>

#include "deadline.h"
#include "process_environment.h"

namespace kiv {

// Returns the bus name of the back end that a portal with this environment uses for screenshots,
// read from the portal's configuration files. Empty when they name none.
std::string ScreenshotBackend(const ProcessEnvironment& environment);

// Whether the portal asks the person before this back end takes a screenshot. Also true when that
// is unknown. May start the back end.
bool BackendAsks(GDBusConnection* bus, const std::string& bus_name, const Deadline& deadline);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PORTAL_BACKEND_H_
