#ifndef SRC_CPP_LINUX_KWIN_SCREENSHOT2_H_
#define SRC_CPP_LINUX_KWIN_SCREENSHOT2_H_

#include <gdk-pixbuf/gdk-pixbuf.h>

#include "compositor_area.h"
#include "deadline.h"
#include "glib_ptr.h"

namespace kiv {

// A picture in the screen's pixels through KWin's org.kde.KWin.ScreenShot2, which sends it through
// a pipe. Blocks until `deadline` at most. Null with the reason in `error`; null without one when
// the session has no KWin, or one without that service.
GObjectPtr<GdkPixbuf> CaptureThroughKwin(CompositorArea area, const Deadline& deadline,
                                         GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_KWIN_SCREENSHOT2_H_
