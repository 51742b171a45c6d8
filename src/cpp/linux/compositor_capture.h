#ifndef SRC_CPP_LINUX_COMPOSITOR_CAPTURE_H_
#define SRC_CPP_LINUX_COMPOSITOR_CAPTURE_H_

#include <gdk-pixbuf/gdk-pixbuf.h>

#include "compositor_area.h"
#include "glib_ptr.h"

namespace kiv {

struct CompositorPicture {
  GObjectPtr<GdkPixbuf> pixbuf;  // null when no way gives one
  // What it shows; the compositor's own service decides that itself.
  enum { kUnknown, kWorkspace, kScreen } extent = kUnknown;
  bool service_found = false;  // the compositor's own service answered the probe
};

// A picture of a session that is not X11. The compositor's own service is asked first; where that
// gives nothing, KWin's ScreenShot2, then the desktop portal, which together block for at most five
// seconds (ten in the process's first call of the portal). Neither is asked while the screen is
// `locked`: the picture would be black, come late or never. They give the workspace in place of the
// active screen where there are several monitors, since the compositor may call another one active.
// Each failure is logged, which enters JavaScript.
CompositorPicture CaptureCompositor(CompositorArea area, bool locked);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_COMPOSITOR_CAPTURE_H_
