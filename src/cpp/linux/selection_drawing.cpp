#include "selection_drawing.h"

#include <cmath>
#include <utility>

namespace kiv {

namespace {

constexpr int kDimmedAlpha = 150;
constexpr double dashed1[] = {4.0};
constexpr double kCrossWidth = 1.0;

Crectangle_d Strip(int x, int y, int width, int height) {
  return {static_cast<double>(x), static_cast<double>(y), static_cast<double>(width),
          static_cast<double>(height)};
}

// Copies the picture to a surface on the display server, so that painting it costs this process
// nothing. The pixels are the same.
CairoSurfacePtr PrepareSource(GdkWindow* window, GdkPixbuf* picture) {
  // An opaque surface would show translucent pixels over black instead of the background.
  const cairo_content_t content =
      gdk_pixbuf_get_has_alpha(picture) ? CAIRO_CONTENT_COLOR_ALPHA : CAIRO_CONTENT_COLOR;
  const int scale = gdk_window_get_scale_factor(window);
  CairoSurfacePtr surface(gdk_window_create_similar_surface(
      window, content, PointsFor(gdk_pixbuf_get_width(picture), scale),
      PointsFor(gdk_pixbuf_get_height(picture), scale)));
  cairo_surface_set_device_scale(surface.get(), 1.0, 1.0);
  const CairoPtr cr(cairo_create(surface.get()));
  gdk_cairo_set_source_pixbuf(cr.get(), picture, 0.0, 0.0);
  cairo_paint(cr.get());
  return surface;
}

// Draws white dashed lines through the pixel (x, y) across the whole surface, in the context's line
// width. No clip may be set.
void draw_dashed_cross(cairo_t* cr, double x, double y) {
  double x1 = 0.0;
  double y1 = 0.0;
  double x2 = 0.0;
  double y2 = 0.0;
  cairo_clip_extents(cr, &x1, &y1, &x2, &y2);
  const double w = x2 - x1;
  const double h = y2 - y1;
  cairo_set_dash(cr, dashed1, 1, 0.0);
  cairo_set_source_rgb(cr, 1.0, 1.0, 1.0);
  // Through the pixel's centre, so that a line of width 1 covers whole pixels.
  cairo_move_to(cr, x + 0.5, 0.0);
  cairo_line_to(cr, x + 0.5, h);
  cairo_move_to(cr, 0.0, y + 0.5);
  cairo_line_to(cr, w, y + 0.5);
  cairo_stroke(cr);
}

// Fills a rectangle with `source`, whose top-left corner lies at (0, 0).
void FillFrom(cairo_t* cr, cairo_surface_t* source, const Crectangle_d& area) {
  cairo_set_source_surface(cr, source, 0.0, 0.0);
  cairo_rectangle(cr, area.x, area.y, area.width, area.height);
  cairo_fill(cr);
}

void PaintFrom(cairo_t* cr, cairo_surface_t* source) {
  cairo_set_source_surface(cr, source, 0.0, 0.0);
  cairo_paint(cr);
}

}  // namespace

GObjectPtr<GdkPixbuf> MakeDimmed(GdkPixbuf* picture) {
  const int width = gdk_pixbuf_get_width(picture);
  const int height = gdk_pixbuf_get_height(picture);
  auto dimmed = AdoptGObject(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height));
  if (!dimmed) return nullptr;
  gdk_pixbuf_fill(dimmed.get(), 0);
  gdk_pixbuf_composite(picture, dimmed.get(), 0, 0, width, height, 0.0, 0.0, 1.0, 1.0,
                       GDK_INTERP_NEAREST, kDimmedAlpha);
  return dimmed;
}

int PointsFor(int pixels, double scale) {
  return static_cast<int>(std::ceil(pixels / scale - kRounding));
}

std::vector<Crectangle_d> UncoveredStrips(const GdkRectangle& before, const GdkRectangle& after) {
  const int old_right = before.x + before.width;
  const int old_bottom = before.y + before.height;
  const int new_right = after.x + after.width;
  const int new_bottom = after.y + after.height;
  std::vector<Crectangle_d> strips;
  if (after.x > before.x) {
    strips.push_back(Strip(before.x, after.y, after.x - before.x, after.height + 1));
  }
  if (new_right < old_right) {
    const int height = (after.y < before.y ? after.height : before.height) + 1;
    strips.push_back(Strip(new_right, after.y, old_right - new_right + 1, height));
  }
  if (before.y < after.y) {
    strips.push_back(Strip(before.x, before.y, before.width + 1, after.y - before.y));
  }
  if (new_bottom < old_bottom) {
    strips.push_back(Strip(before.x, new_bottom, before.width + 1, old_bottom - new_bottom + 1));
  }
  return strips;
}

SelectionCanvas::SelectionCanvas(GObjectPtr<GdkPixbuf> base, GObjectPtr<GdkPixbuf> blended,
                                 double scale)
    : base_pixbuf_(std::move(base)), blended_pixbuf_(std::move(blended)), scale_(scale) {}

void SelectionCanvas::Configure(GdkWindow* window, int width, int height, int x, int y) {
  window_ = RetainGObject(window);
  if (!blended_source_) blended_source_ = PrepareSource(window, blended_pixbuf_.get());
  cr_.reset();
  surface_.reset(gdk_window_create_similar_surface(window, CAIRO_CONTENT_COLOR, width, height));
  cr_.reset(cairo_create(surface_.get()));
  if (scale_ != 1) cairo_scale(cr_.get(), 1.0 / scale_, 1.0 / scale_);
  PaintFrom(cr_.get(), blended_source_.get());
  DrawCross(x, y);
}

void SelectionCanvas::BeginStep(bool clear) {
  cairo_set_line_width(cr_.get(), kCrossWidth);
  if (clear) PaintFrom(cr_.get(), blended_source_.get());
}

void SelectionCanvas::DrawCross(int x, int y) { draw_dashed_cross(cr_.get(), x, y); }

void SelectionCanvas::DrawDragStep(int x, int y, const GdkRectangle& before,
                                   const GdkRectangle& after) {
  DrawCross(x, y);
  // An empty rectangle has nothing to restore: this is the first step after the press.
  if (before.width > 0 || before.height > 0) {
    for (const Crectangle_d& strip : UncoveredStrips(before, after)) {
      FillFrom(cr_.get(), blended_source_.get(), strip);
    }
  }
  PrepareBase();
  FillFrom(cr_.get(), base_source_.get(), Strip(after.x, after.y, after.width, after.height));
}

void SelectionCanvas::Show(cairo_t* cr) const { PaintFrom(cr, surface_.get()); }

void SelectionCanvas::PrepareBase() {
  if (!base_source_) base_source_ = PrepareSource(window_.get(), base_pixbuf_.get());
}

}  // namespace kiv
