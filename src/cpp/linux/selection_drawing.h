#ifndef SRC_CPP_LINUX_SELECTION_DRAWING_H_
#define SRC_CPP_LINUX_SELECTION_DRAWING_H_

#include <gdk/gdk.h>

#include <memory>
#include <vector>

#include "glib_ptr.h"

namespace kiv {

// What the overlay draws, step by step. Coordinates are pixels of the captured picture.

using CairoPtr = std::unique_ptr<cairo_t, FreeWith<cairo_destroy>>;
using CairoSurfacePtr = std::unique_ptr<cairo_surface_t, FreeWith<cairo_surface_destroy>>;

// The picture over black at 150/255; null when there is no memory for it.
GObjectPtr<GdkPixbuf> MakeDimmed(GdkPixbuf* picture);

// A product or quotient that is whole may come out a little beside it.
constexpr double kRounding = 1e-6;

// The fewest points that show so many pixels.
int PointsFor(int pixels, double scale);

struct Crectangle_d {
  double x;
  double y;
  double width;
  double height;
};

// The strips of `before` that `after` no longer covers: left, right, top, bottom, those that there
// are. Several are a pixel wider or longer, to reach the lines that framed `before`.
std::vector<Crectangle_d> UncoveredStrips(const GdkRectangle& before, const GdkRectangle& after);

// The off-screen picture that the overlay's window shows; always complete.
class SelectionCanvas {
 public:
  // The captured picture and its dimmed copy; `scale` pixels make a point of the window.
  SelectionCanvas(GObjectPtr<GdkPixbuf> base, GObjectPtr<GdkPixbuf> blended, double scale);
  ~SelectionCanvas() = default;
  SelectionCanvas(const SelectionCanvas&) = delete;
  SelectionCanvas& operator=(const SelectionCanvas&) = delete;

  // Begins anew for a window of that size in points: the dimmed picture, and a cross at (x, y).
  void Configure(GdkWindow* window, int width, int height, int x, int y);
  // False before the first Configure; nothing may be drawn or shown then.
  bool configured() const { return cr_ != nullptr; }

  // Begins a step; `clear` removes what the one before drew.
  void BeginStep(bool clear);
  void DrawCross(int x, int y);
  // The rectangle that is dragged out, with the cross at (x, y).
  void DrawDragStep(int x, int y, const GdkRectangle& before, const GdkRectangle& after);
  // Copies the picture.
  void Show(cairo_t* cr) const;

  // Makes the undimmed source, which a drag needs, beforehand.
  void PrepareBase();
  bool base_prepared() const { return base_source_ != nullptr; }

  GdkPixbuf* picture() const { return base_pixbuf_.get(); }

 private:
  GObjectPtr<GdkPixbuf> base_pixbuf_;
  GObjectPtr<GdkPixbuf> blended_pixbuf_;
  double scale_;
  GObjectPtr<GdkWindow> window_;
  // The two pictures as the drawing's sources.
  CairoSurfacePtr base_source_;
  CairoSurfacePtr blended_source_;
  CairoSurfacePtr surface_;
  CairoPtr cr_;  // on surface_
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SELECTION_DRAWING_H_
