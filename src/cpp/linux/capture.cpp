#include "capture.h"

#include "../log_request_ids.h"
#include "../logging.h"
#include "dbus_screenshot.h"
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

// The backend and its file are gone before the encoding.
GObjectPtr<GdkPixbuf> CaptureThroughCompositor(CaptureArea area) {
  const auto backend = DbusScreenshot::Create();
  if (backend) return AdoptGObject(backend->SnapWholeDesktop());
  LogMessage(LogMessage::error).stream()
      << (area == CaptureArea::kDesktop ? kLoggingRequestId_SnapDesktopError
                                        : kLoggingRequestId_SnapDisplayError);
  return nullptr;
}

}  // namespace

LimitedSize LimitSize(uint32_t width, uint32_t height) {
  LimitedSize size = {width, height, false};
  if (size.width > kMaxWidth) size = {kMaxWidth, size.height * kMaxWidth / size.width, true};
  if (size.height > kMaxHeight) size = {size.width * kMaxHeight / size.height, kMaxHeight, true};
  return size;
}

ScreenSnap CaptureScreen(CaptureArea area, bool is_x11, bool jpeg, bool limit_size) {
  const auto pixbuf = is_x11 ? CaptureThroughGdk(area) : CaptureThroughCompositor(area);
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
