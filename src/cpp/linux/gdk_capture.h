#ifndef SRC_CPP_LINUX_GDK_CAPTURE_H_
#define SRC_CPP_LINUX_GDK_CAPTURE_H_

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gdk/gdk.h>

#include "glib_ptr.h"

namespace kiv {

// Captures the X screen through GDK's own connection. Without an open X display every rectangle is
// empty and every picture null, and GDK prints nothing.

// The whole root window, in GDK's coordinates.
GdkRectangle DesktopArea();
// The monitor with the active window; the whole root window when no window is active.
GdkRectangle ActiveDisplayArea();
// The number of monitors.
int CountMonitors();

// Captures an area of the root window. Returns null on failure.
GObjectPtr<GdkPixbuf> CaptureRoot(const GdkRectangle& area);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_GDK_CAPTURE_H_
