#include "compositor_capture.h"

#include <memory>
#include <string>

#include "dbus_screenshot.h"
#include "deadline.h"
#include "gdk_capture.h"
#include "kwin_screenshot2.h"
#include "portal_screenshot.h"

namespace kiv {

namespace {

constexpr auto kPatience = Deadline::Milliseconds(5000);

// A way that is not available sets no error and logs nothing.
void LogIfFailed(const char* way, const GErrorPtr& error) {
  if (error) LogScreenshotFailure((std::string(way) + error->message).c_str());
}

GdkPixbuf* Snap(DbusScreenshot& service, CompositorArea area) {
  return area == CompositorArea::kWorkspace ? service.SnapWholeDesktop()
                                            : service.SnapActiveDisplay();
}

void SnapThroughKwin(CompositorArea area, const Deadline& deadline, CompositorPicture* picture) {
  GErrorPtr error;
  if (CountMonitors() > 1) area = CompositorArea::kWorkspace;
  picture->pixbuf = CaptureThroughKwin(area, deadline, &error);
  LogIfFailed("ScreenShot2: ", error);
  picture->extent = area == CompositorArea::kWorkspace ? CompositorPicture::kWorkspace
                                                       : CompositorPicture::kScreen;
}

void SnapThroughPortal(const Deadline& deadline, CompositorPicture* picture) {
  GErrorPtr error;
  picture->pixbuf = CaptureThroughPortal(deadline, &error);
  LogIfFailed("portal: ", error);
  picture->extent = CompositorPicture::kWorkspace;
}

}  // namespace

CompositorPicture CaptureCompositor(CompositorArea area, bool locked) {
  static bool service_known = false;
  CompositorPicture picture;
  picture.service_found = service_known;
  // Hold the connection, so that the steps below share it.
  GErrorPtr error;
  const auto bus = ConnectSessionBus(&error);
  if (!bus) {
    LogScreenshotFailure(error->message);
    return picture;
  }
  const auto service = DbusScreenshot::Create();
  picture.service_found = service_known = service != nullptr;
  if (service) picture.pixbuf = AdoptGObject(Snap(*service, area));
  if (picture.pixbuf) return picture;
  if (locked) {
    LogScreenshotFailure("the screen is locked");
    return picture;
  }
  const Deadline deadline = Deadline::In(kPatience);
  if (!service || service->unavailable()) SnapThroughKwin(area, deadline, &picture);
  if (!picture.pixbuf && !deadline.Passed()) SnapThroughPortal(deadline, &picture);
  return picture;
}

}  // namespace kiv
