#ifndef SRC_CPP_LINUX_SELECTION_DRAWING_H_
#define SRC_CPP_LINUX_SELECTION_DRAWING_H_

#include <gdk/gdk.h>

#include <memory>
#include <vector>

#include "glib_ptr.h"

namespace kiv {

// What the overlay draws, step by step. Contexts measure in pixels of the captured picture.

using CairoPtr = std::unique_ptr<cairo_t, FreeWith<cairo_destroy>>;
using CairoSurfacePtr = std::unique_ptr<cairo_surface_t, FreeWith<cairo_surface_destroy>>;

// The picture over black at 150/255; null when there is no memory for it.
GObjectPtr<GdkPixbuf> MakeDimmed(GdkPixbuf* picture);

// The picture as a surface on the display server's side, so that painting it costs this process
// nothing; its pixels are those of the picture itself as a source. `scale` is the window's.
CairoSurfacePtr PrepareSource(GdkWindow* window, GdkPixbuf* picture, int scale);

struct Crectangle_d {
  double x;
  double y;
  double width;
  double height;
};

// The strips of `before` that `after` no longer covers: left, right, top, bottom, those that there
// are. Several are a pixel wider or longer, to reach the lines that framed `before`.
std::vector<Crectangle_d> UncoveredStrips(const GdkRectangle& before, const GdkRectangle& after);

// White dashed lines through the pixel (x, y) across the whole surface, in the context's line
// width. No clip may be set.
void draw_dashed_cross(cairo_t* cr, double x, double y);

// Fills a rectangle with `source`, whose top-left corner lies at (0, 0).
void FillFrom(cairo_t* cr, cairo_surface_t* source, const Crectangle_d& area);
// The same with the whole surface.
void PaintFrom(cairo_t* cr, cairo_surface_t* source);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SELECTION_DRAWING_H_
