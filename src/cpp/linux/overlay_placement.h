#ifndef SRC_CPP_LINUX_OVERLAY_PLACEMENT_H_
#define SRC_CPP_LINUX_OVERLAY_PLACEMENT_H_

#include <gdk/gdk.h>

#include "compositor_capture.h"
#include "glib_ptr.h"

namespace kiv {

// A picture and where the overlay shows it.
struct PlacedPicture {
  GObjectPtr<GdkPixbuf> pixbuf;
  GdkRectangle monitor;  // in points
  double scale;          // pixels of the picture per point; 0 for the toolkit's own scale
};

// Places a compositor's picture so that each pixel lies where the screen showed it, also when
// Xwayland's points are not the screen's pixels. One of the workspace is cut down to `monitor`; one
// that fits neither is left as it is.
PlacedPicture PlaceOnMonitor(CompositorPicture picture, const GdkRectangle& monitor);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_OVERLAY_PLACEMENT_H_
