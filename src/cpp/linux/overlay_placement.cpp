#include "overlay_placement.h"

#include <cmath>
#include <utility>

#include "gdk_capture.h"

namespace kiv {

namespace {

int Round(double value) { return static_cast<int>(std::lround(value)); }

// Pixels per point, if the picture has the area's proportions; otherwise 0.
double ScaleOf(GdkPixbuf* picture, const GdkRectangle& area) {
  if (area.width <= 0 || area.height <= 0) return 0;
  const double scale = static_cast<double>(gdk_pixbuf_get_width(picture)) / area.width;
  const bool fits = std::abs(gdk_pixbuf_get_height(picture) - scale * area.height) < 1 + scale;
  return fits ? scale : 0;
}

PlacedPicture CutDown(GObjectPtr<GdkPixbuf> picture, const GdkRectangle& monitor) {
  const GdkRectangle desktop = DesktopArea();
  const double scale = ScaleOf(picture.get(), desktop);
  GdkRectangle part = {Round((monitor.x - desktop.x) * scale),
                       Round((monitor.y - desktop.y) * scale), Round(monitor.width * scale),
                       Round(monitor.height * scale)};
  const GdkRectangle all = {0, 0, gdk_pixbuf_get_width(picture.get()),
                            gdk_pixbuf_get_height(picture.get())};
  if (!gdk_rectangle_intersect(&part, &all, &part)) return {std::move(picture), monitor, 0};
  auto cut = AdoptGObject(
      gdk_pixbuf_new_subpixbuf(picture.get(), part.x, part.y, part.width, part.height));
  return {std::move(cut), monitor, scale};
}

}  // namespace

PlacedPicture PlaceOnMonitor(CompositorPicture picture, const GdkRectangle& monitor) {
  if (picture.extent == CompositorPicture::kWorkspace) {
    return CutDown(std::move(picture.pixbuf), monitor);
  }
  if (picture.extent == CompositorPicture::kUnknown) return {std::move(picture.pixbuf), monitor, 0};
  const double scale = ScaleOf(picture.pixbuf.get(), monitor);
  return {std::move(picture.pixbuf), monitor, scale};
}

}  // namespace kiv
