#ifndef SRC_CPP_LINUX_KWIN_SCREENSHOT2_H_
#define SRC_CPP_LINUX_KWIN_SCREENSHOT2_H_

#include <gdk-pixbuf/gdk-pixbuf.h>

#include "compositor_area.h"
#include "deadline.h"
#include "glib_ptr.h"

namespace kiv {

// Takes a picture, in the screen's pixels, through KWin's org.kde.KWin.ScreenShot2, which writes it
// into a pipe. Blocks until `deadline` at most. Returns null with the reason in `error`, or null
// without an error when there is no KWin or it lacks this service.
GObjectPtr<GdkPixbuf> CaptureThroughKwin(CompositorArea area, const Deadline& deadline,
                                         GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_KWIN_SCREENSHOT2_H_
