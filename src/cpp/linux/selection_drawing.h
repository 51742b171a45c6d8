#ifndef SRC_CPP_LINUX_SELECTION_DRAWING_H_
#define SRC_CPP_LINUX_SELECTION_DRAWING_H_

#include <gdk/gdk.h>

#include <memory>
#include <vector>

#include "glib_ptr.h"

namespace kiv {

// Draws the overlay's contents. Coordinates are pixels of the captured picture.

using CairoPtr = std::unique_ptr<cairo_t, FreeWith<cairo_destroy>>;
using CairoSurfacePtr = std::unique_ptr<cairo_surface_t, FreeWith<cairo_surface_destroy>>;

// Blends the picture with black at 150/255. Returns null when out of memory.
GObjectPtr<GdkPixbuf> MakeDimmed(GdkPixbuf* picture);

// Rounding error allowed in a whole-number product or quotient.
constexpr double kRounding = 1e-6;

// The smallest number of points that covers so many pixels.
int PointsFor(int pixels, double scale);

struct Crectangle_d {
  double x;
  double y;
  double width;
  double height;
};

// The strips of `before` that `after` no longer covers: left, right, top, bottom, non-empty ones
// only. Some are a pixel wider or longer, to cover the frame of `before`.
std::vector<Crectangle_d> UncoveredStrips(const GdkRectangle& before, const GdkRectangle& after);

// The off-screen picture that the overlay's window shows. Always complete.
class SelectionCanvas {
 public:
  // Takes the captured picture and its dimmed copy. A point of the window has `scale` pixels.
  SelectionCanvas(GObjectPtr<GdkPixbuf> base, GObjectPtr<GdkPixbuf> blended, double scale);
  ~SelectionCanvas() = default;
  SelectionCanvas(const SelectionCanvas&) = delete;
  SelectionCanvas& operator=(const SelectionCanvas&) = delete;

  // Starts over for a window of that size in points: the dimmed picture with a cross at (x, y).
  void Configure(GdkWindow* window, int width, int height, int x, int y);
  // False before the first Configure. Do not draw or show anything then.
  bool configured() const { return cr_ != nullptr; }

  // Begins a step. `clear` removes what the previous step drew.
  void BeginStep(bool clear);
  void DrawCross(int x, int y);
  // Draws the selected rectangle and the cross at (x, y).
  void DrawDragStep(int x, int y, const GdkRectangle& before, const GdkRectangle& after);
  // Paints the picture to `cr`.
  void Show(cairo_t* cr) const;

  // Prepares the undimmed source, which a drag needs.
  void PrepareBase();
  bool base_prepared() const { return base_source_ != nullptr; }

  GdkPixbuf* picture() const { return base_pixbuf_.get(); }

 private:
  GObjectPtr<GdkPixbuf> base_pixbuf_;
  GObjectPtr<GdkPixbuf> blended_pixbuf_;
  double scale_;
  GObjectPtr<GdkWindow> window_;
  // The two pictures as drawing sources.
  CairoSurfacePtr base_source_;
  CairoSurfacePtr blended_source_;
  CairoSurfacePtr surface_;
  CairoPtr cr_;  // draws on surface_
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SELECTION_DRAWING_H_
