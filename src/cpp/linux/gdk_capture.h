#ifndef SRC_CPP_LINUX_GDK_CAPTURE_H_
#define SRC_CPP_LINUX_GDK_CAPTURE_H_

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gdk/gdk.h>

#include "glib_ptr.h"

namespace kiv {

// Pictures of the X screen through the toolkit's own connection. Without an open X display every
// rectangle is empty and every picture null, without a word from GDK.

// The whole root window, in GDK's coordinates.
GdkRectangle DesktopArea();
// The monitor that shows the active window; the whole root window when no window is active.
GdkRectangle ActiveDisplayArea();
// How many monitors there are.
int CountMonitors();

// The picture of a part of the root window; null when there is none.
GObjectPtr<GdkPixbuf> CaptureRoot(const GdkRectangle& area);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_GDK_CAPTURE_H_
