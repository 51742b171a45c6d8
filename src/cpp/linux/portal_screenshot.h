#ifndef SRC_CPP_LINUX_PORTAL_SCREENSHOT_H_
#define SRC_CPP_LINUX_PORTAL_SCREENSHOT_H_

#include <gdk-pixbuf/gdk-pixbuf.h>

#include "deadline.h"
#include "glib_ptr.h"

namespace kiv {

// The whole desktop through the desktop portal. Blocks until `deadline` at most, five seconds
// longer the first time in a process, since that call may start the portal. Never shows a question:
// where the portal would ask the person, nothing is called. Null with the reason in `error`; null
// without one when the desktop has no portal that takes screenshots.
GObjectPtr<GdkPixbuf> CaptureThroughPortal(const Deadline& deadline, GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PORTAL_SCREENSHOT_H_
