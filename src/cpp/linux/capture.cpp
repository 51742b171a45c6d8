#include "capture.h"

#include <utility>

#include "../log_request_ids.h"
#include "../logging.h"
#include "compositor_capture.h"
#include "gdk_capture.h"
#include "glib_ptr.h"
#include "image_encoder.h"

namespace kiv {

namespace {

constexpr uint32_t kMaxWidth = 1920;
constexpr uint32_t kMaxHeight = 1080;

GObjectPtr<GdkPixbuf> CaptureThroughGdk(CaptureArea area) {
  return CaptureRoot(area == CaptureArea::kDesktop ? DesktopArea() : ActiveDisplayArea());
}

// The compositor's file is deleted before the picture is encoded.
GObjectPtr<GdkPixbuf> CaptureThroughCompositor(CaptureArea area, bool locked) {
  CompositorPicture picture = CaptureCompositor(CompositorArea::kWorkspace, locked);
  if (!picture.pixbuf && !picture.service_found) {
    LogMessage(LogMessage::error).stream()
        << (area == CaptureArea::kDesktop ? kLoggingRequestId_SnapDesktopError
                                          : kLoggingRequestId_SnapDisplayError);
  }
  return std::move(picture.pixbuf);
}

}  // namespace

LimitedSize LimitSize(uint32_t width, uint32_t height) {
  LimitedSize size = {width, height, false};
  if (size.width > kMaxWidth) size = {kMaxWidth, size.height * kMaxWidth / size.width, true};
  if (size.height > kMaxHeight) size = {size.width * kMaxHeight / size.height, kMaxHeight, true};
  return size;
}

ScreenSnap CaptureScreen(CaptureArea area, const CaptureSession& session, bool jpeg,
                         bool limit_size) {
  const auto pixbuf = session.is_x11 ? CaptureThroughGdk(area)
                                     : CaptureThroughCompositor(area, session.screen_locked);
  if (!pixbuf) return {};
  LimitedSize size = {static_cast<uint32_t>(gdk_pixbuf_get_width(pixbuf.get())),
                      static_cast<uint32_t>(gdk_pixbuf_get_height(pixbuf.get())), false};
  if (limit_size) size = LimitSize(size.width, size.height);
  if (size.width == 0 || size.height == 0) return {};
  ScreenSnap snap;
  snap.width = size.width;
  snap.height = size.height;
  FetchPixbufImage(snap, pixbuf.get(), size.width, size.height, jpeg, size.reduced);
  return snap;
}

}  // namespace kiv
