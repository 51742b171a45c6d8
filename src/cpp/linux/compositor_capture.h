#ifndef SRC_CPP_LINUX_COMPOSITOR_CAPTURE_H_
#define SRC_CPP_LINUX_COMPOSITOR_CAPTURE_H_

#include <gdk-pixbuf/gdk-pixbuf.h>

#include "compositor_area.h"
#include "glib_ptr.h"

namespace kiv {

struct CompositorPicture {
  GObjectPtr<GdkPixbuf> pixbuf;  // null when every way failed
  // What the picture shows. Unknown when the compositor's own service made it.
  enum { kUnknown, kWorkspace, kScreen } extent = kUnknown;
  bool service_found = false;  // the compositor's own service answered the probe
};

// Takes a picture in a session that is not X11: from the compositor's own service, then from KWin's
// ScreenShot2, then from the desktop portal. The last two together block for at most five seconds
// (ten for the process's first portal call). They are skipped while the screen is `locked`, because
// the picture would be black, late or missing. With several monitors they capture the workspace
// instead of the active screen, because the compositor may consider another screen active. Logs
// each failure, which enters JavaScript.
CompositorPicture CaptureCompositor(CompositorArea area, bool locked);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_COMPOSITOR_CAPTURE_H_
