#include "gnome_screenshot.h"

#include <utility>

#include "../event_scope.h"
#include "../snap_completion.h"
#include "dbus_screenshot_names.h"
#include "desktop_session_data_linux.h"
#include "image_encoder.h"

namespace kiv {

namespace {

constexpr gboolean kIncludeCursor = FALSE;
constexpr gboolean kFlash = TRUE;

// D-Bus carries only UTF-8, but a folder's name may contain any bytes.
bool CanBeSent(const std::string& path) {
  if (!path.empty() && g_utf8_validate(path.data(), static_cast<gssize>(path.size()), nullptr)) {
    return true;
  }
  LogScreenshotFailure("no usable name for a temporary file");
  return false;
}

void CompleteWithoutPicture(int error_code, DesktopSessionData* data, void* callback) {
  PublishPicture(&data->snap, ScreenSnap());
  OnScreenSnapCompleted(error_code, &data->snap, callback, true);
}

ScreenSnap Encode(GdkPixbuf* pixbuf) {
  ScreenSnap snap;
  snap.width = static_cast<uint32_t>(gdk_pixbuf_get_width(pixbuf));
  snap.height = static_cast<uint32_t>(gdk_pixbuf_get_height(pixbuf));
  FetchPixbufImage(snap, pixbuf, snap.width, snap.height, false, false);
  return snap;
}

// Belongs to one area selection; select_area_done deletes it.
struct AreaRequest {
  std::shared_ptr<GnomeDbusScreenshot> backend;
  DesktopSessionData* data;
  void* callback;
};

}  // namespace

GdkPixbuf* GnomeDbusScreenshot::SnapWholeDesktop() {
  const std::string path = GetTmpFileName();
  if (!CanBeSent(path)) return nullptr;
  if (!Call(kGnome, kGnomeDbusFunctionScreenshot,
            g_variant_new("(bbs)", kIncludeCursor, kFlash, path.c_str()), nullptr)) {
    return nullptr;
  }
  tmp_files_.push_back(path);
  return LoadImage(path);
}

GdkPixbuf* GnomeDbusScreenshot::SnapActiveDisplay() { return SnapWholeDesktop(); }

void GnomeDbusScreenshot::SnapSelection(DesktopSessionData* data, void* callback) {
  GErrorPtr error;
  const auto bus = ConnectSessionBus(&error);
  if (!bus) return CompleteWithoutPicture(kSnapSelectionFailed, data, callback);
  auto request = std::make_unique<AreaRequest>(AreaRequest{shared_from_this(), data, callback});
  StartSessionBusCall(bus.get(), kGnome, kGnomeDbusFunctionSelectArea, select_area_done,
                      request.release());
}

void GnomeDbusScreenshot::select_area_done(GObject* source, GAsyncResult* result, void* user_data) {
  const EventScope event_scope;
  const std::unique_ptr<AreaRequest> request(static_cast<AreaRequest*>(user_data));
  GErrorPtr error;
  GVariantPtr reply = FinishSessionBusCall(source, result, "(iiii)", &error);
  if (!reply && g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
    return CompleteWithoutPicture(kSnapSelectionCancelled, request->data, request->callback);
  }
  if (!reply) {
    LogScreenshotFailure(error->message);
    return CompleteWithoutPicture(kSnapSelectionFailed, request->data, request->callback);
  }
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
  g_variant_get(reply.get(), "(iiii)", &x, &y, &width, &height);
  reply.reset();
  request->backend->ScreenshotArea(x, y, width, height, request->data, request->callback);
}

void GnomeDbusScreenshot::ScreenshotArea(int x, int y, int width, int height,
                                         DesktopSessionData* data, void* callback) {
  const std::string path = GetTmpFileName();
  if (!CanBeSent(path) ||
      !Call(kGnome, kGnomeDbusFunctionScreenshotArea,
            g_variant_new("(iiiibs)", x, y, width, height, kFlash, path.c_str()), nullptr)) {
    return CompleteWithoutPicture(kSnapSelectionFailed, data, callback);
  }
  tmp_files_.push_back(path);
  auto pixbuf = AdoptGObject(LoadImage(path));
  if (!pixbuf) return CompleteWithoutPicture(kSnapCompleted, data, callback);
  PublishPicture(&data->snap, Encode(pixbuf.get()));
  pixbuf.reset();
  OnScreenSnapCompleted(kSnapCompleted, &data->snap, callback, true);
}

}  // namespace kiv
