#ifndef SRC_CPP_LINUX_OVERLAY_PLACEMENT_H_
#define SRC_CPP_LINUX_OVERLAY_PLACEMENT_H_

#include <gdk/gdk.h>

#include "compositor_capture.h"
#include "glib_ptr.h"

namespace kiv {

// A picture and the place where the overlay shows it.
struct PlacedPicture {
  GObjectPtr<GdkPixbuf> pixbuf;
  GdkRectangle monitor;  // in points
  double scale;          // pixels of the picture per point; 0 for GTK's own scale
};

// Places a compositor's picture so that each pixel is where the screen showed it, even when
// Xwayland's points differ from the screen's pixels. Crops a workspace picture to `monitor`. Leaves
// a picture that fits neither unchanged.
PlacedPicture PlaceOnMonitor(CompositorPicture picture, const GdkRectangle& monitor);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_OVERLAY_PLACEMENT_H_
