#include "dbus_screenshot.h"

#include <gdk/gdk.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "../event_scope.h"
#include "../log_request_ids.h"
#include "../logging.h"
#include "../snap_completion.h"
#include "desktop_session_data_linux.h"
#include "glib_ptr.h"
#include "image_encoder.h"
#include "picture_file.h"
#include "session_bus.h"

namespace kiv {

namespace {

constexpr char kDbusIntrospect[] = "Introspect";
constexpr char kDbusIntrospectIinterface[] = "org.freedesktop.DBus.Introspectable";
constexpr char kGnomeDbusBusName[] = "org.gnome.Shell.Screenshot";
constexpr char kGnomeDbusObjectPath[] = "/org/gnome/Shell/Screenshot";
constexpr char kGnomeDbusInterface[] = "org.gnome.Shell.Screenshot";
constexpr char kGnomeDbusFunctionScreenshot[] = "Screenshot";
constexpr char kGnomeDbusFunctionScreenshotArea[] = "ScreenshotArea";
constexpr char kGnomeDbusFunctionSelectArea[] = "SelectArea";
constexpr char kKdeDbusBusName[] = "org.kde.KWin";
constexpr char kKdeDbusObjectPath[] = "/Screenshot";
constexpr char kKdeDbusInterface[] = "org.kde.kwin.Screenshot";
constexpr char kKdeDbusFunctionScreenshot[] = "screenshotFullscreen";
constexpr char kKdeDbusFunctionScreenshotScreen[] = "screenshotScreen";

constexpr char kTmpDirVariable[] = "TMPDIR";
constexpr char kDefaultTmpDir[] = "/tmp";
constexpr gboolean kIncludeCursor = FALSE;
constexpr gboolean kFlash = TRUE;

void LogFailure(const char* message) {
  LogMessage(LogMessage::error).stream() << kLoggingRequestId_DbusScreenshotError << message;
}

constexpr BusObject kGnome = {kGnomeDbusBusName, kGnomeDbusObjectPath, kGnomeDbusInterface};
constexpr BusObject kKde = {kKdeDbusBusName, kKdeDbusObjectPath, kKdeDbusInterface};

GVariantPtr CallOrLog(const BusObject& object, const char* method, GVariant* parameters,
                      const char* reply_type) {
  return CallSessionBusOrLog(kLoggingRequestId_DbusScreenshotError, object, method, parameters,
                             reply_type);
}

bool AnswersProbe(const BusObject& object) {
  const BusObject introspection = {object.bus_name, object.object_path, kDbusIntrospectIinterface};
  GErrorPtr error;
  return CallSessionBus(introspection, kDbusIntrospect, nullptr, nullptr, &error) != nullptr;
}

// D-Bus carries UTF-8 only, and the folder's name may be anything.
bool CanBeSent(const std::string& path) {
  if (!path.empty() && g_utf8_validate(path.data(), static_cast<gssize>(path.size()), nullptr)) {
    return true;
  }
  LogFailure("no usable name for a temporary file");
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

// Travels with the selection.
struct AreaRequest {
  std::shared_ptr<GnomeDbusScreenshot> backend;
  DesktopSessionData* data;
  void* callback;
};

int DefaultScreenNumber() {
  if (!gdk_display_get_default()) return 0;
  return gdk_screen_get_number(gdk_window_get_screen(gdk_get_default_root_window()));
}

}  // namespace

std::shared_ptr<DbusScreenshot> DbusScreenshot::Create() {
  static bool test_interfaces = true;
  static bool gnome = false;
  static bool plasma = false;
  if (test_interfaces) {
    GErrorPtr error;
    const auto bus = ConnectSessionBus(&error);
    if (!bus) {
      LogFailure(error->message);
      return nullptr;
    }
    gnome = AnswersProbe(kGnome);
    plasma = AnswersProbe(kKde);
    test_interfaces = false;
  }
  if (gnome) return std::make_shared<GnomeDbusScreenshot>();
  if (plasma) return std::make_shared<PlasmaDbusScreenshot>();
  return nullptr;
}

DbusScreenshot::~DbusScreenshot() {
  for (const std::string& path : tmp_files_) unlink(path.c_str());
}

std::string DbusScreenshot::GetTmpFileName() const {
  const char* directory = std::getenv(kTmpDirVariable);
  return UnusedPath(directory ? directory : kDefaultTmpDir);
}

GdkPixbuf* DbusScreenshot::LoadImage(const std::string& path) const {
  GErrorPtr error;
  auto pixbuf = ReadPicture(path, &error);
  if (!pixbuf) LogFailure(error->message);
  return pixbuf.release();
}

GdkPixbuf* GnomeDbusScreenshot::SnapWholeDesktop() {
  const std::string path = GetTmpFileName();
  if (!CanBeSent(path)) return nullptr;
  if (!CallOrLog(kGnome, kGnomeDbusFunctionScreenshot,
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
    LogFailure(error->message);
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
      !CallOrLog(kGnome, kGnomeDbusFunctionScreenshotArea,
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
  const GVariantPtr reply = CallOrLog(kKde, method, parameters, "(s)");
  if (!reply) return nullptr;
  tmp_files_.push_back(ReadPath(reply.get()));
  return LoadImage(tmp_files_.back());
}

}  // namespace kiv
