#ifndef SRC_CPP_LINUX_PORTAL_SCREENSHOT_H_
#define SRC_CPP_LINUX_PORTAL_SCREENSHOT_H_

#include <gdk-pixbuf/gdk-pixbuf.h>

#include "deadline.h"
#include "glib_ptr.h"

namespace kiv {

// Returns a picture of the whole desktop. Blocks until `deadline` at most, five seconds longer for
// the process's first call, which may start the portal. Never shows a question: when the portal
// would ask the person, it is not called. Returns null with the reason in `error`, or without one
// when the desktop has no portal that takes screenshots.
GObjectPtr<GdkPixbuf> CaptureThroughPortal(const Deadline& deadline, GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PORTAL_SCREENSHOT_H_
