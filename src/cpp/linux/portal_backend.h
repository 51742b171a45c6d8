#ifndef SRC_CPP_LINUX_PORTAL_BACKEND_H_
#define SRC_CPP_LINUX_PORTAL_BACKEND_H_

#include <string>

#include "deadline.h"

namespace kiv {

// The bus name of the back end through which this desktop's portal takes screenshots, found in the
// portal's own files and the environment; empty when they do not tell. Reads the environment: main
// thread only.
std::string ScreenshotBackend();

// Whether the portal asks the person before it has this back end take a screenshot. True, too, when
// that cannot be found out. May start the back end.
bool BackendAsks(const std::string& bus_name, const Deadline& deadline);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PORTAL_BACKEND_H_
