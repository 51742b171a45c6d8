#include "plasma_screenshot.h"

#include <gdk/gdk.h>

#include "dbus_screenshot_names.h"

namespace kiv {

namespace {

int DefaultScreenNumber() {
  if (!gdk_display_get_default()) return 0;
  return gdk_screen_get_number(gdk_window_get_screen(gdk_get_default_root_window()));
}

}  // namespace

std::string ReadPath(GVariant* reply) {
  const char* path = nullptr;
  g_variant_get(reply, "(&s)", &path);
  return path;
}

GdkPixbuf* PlasmaDbusScreenshot::SnapWholeDesktop() {
  return Capture(kKdeDbusFunctionScreenshot, nullptr);
}

GdkPixbuf* PlasmaDbusScreenshot::SnapActiveDisplay() {
  return Capture(kKdeDbusFunctionScreenshotScreen, g_variant_new("(i)", DefaultScreenNumber()));
}

void PlasmaDbusScreenshot::SnapSelection(DesktopSessionData* /*data*/, void* /*callback*/) {}

GdkPixbuf* PlasmaDbusScreenshot::Capture(const char* method, GVariant* parameters) {
  const GVariantPtr reply = Call(kKde, method, parameters, "(s)");
  if (!reply) return nullptr;
  tmp_files_.push_back(ReadPath(reply.get()));
  return LoadImage(tmp_files_.back());
}

}  // namespace kiv
