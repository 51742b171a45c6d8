#include "selection_drawing.h"

namespace kiv {

namespace {

constexpr int kDimmedAlpha = 150;
constexpr double dashed1[] = {4.0};

Crectangle_d Strip(int x, int y, int width, int height) {
  return {static_cast<double>(x), static_cast<double>(y), static_cast<double>(width),
          static_cast<double>(height)};
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

CairoSurfacePtr PrepareSource(GdkWindow* window, GdkPixbuf* picture, int scale) {
  // An opaque surface would show translucent pixels over black instead of over what lies there.
  const cairo_content_t content =
      gdk_pixbuf_get_has_alpha(picture) ? CAIRO_CONTENT_COLOR_ALPHA : CAIRO_CONTENT_COLOR;
  const auto points = [scale](int pixels) { return (pixels + scale - 1) / scale; };
  CairoSurfacePtr surface(
      gdk_window_create_similar_surface(window, content, points(gdk_pixbuf_get_width(picture)),
                                        points(gdk_pixbuf_get_height(picture))));
  cairo_surface_set_device_scale(surface.get(), 1.0, 1.0);
  const CairoPtr cr(cairo_create(surface.get()));
  gdk_cairo_set_source_pixbuf(cr.get(), picture, 0.0, 0.0);
  cairo_paint(cr.get());
  return surface;
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

void FillFrom(cairo_t* cr, cairo_surface_t* source, const Crectangle_d& area) {
  cairo_set_source_surface(cr, source, 0.0, 0.0);
  cairo_rectangle(cr, area.x, area.y, area.width, area.height);
  cairo_fill(cr);
}

void PaintFrom(cairo_t* cr, cairo_surface_t* source) {
  cairo_set_source_surface(cr, source, 0.0, 0.0);
  cairo_paint(cr);
}

}  // namespace kiv
