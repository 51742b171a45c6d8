#include "dbus_screenshot.h"

#include <gdk/gdk.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "../event_scope.h"
#include "../log_request_ids.h"
#include "../logging.h"
#include "../snap_completion.h"
#include "desktop_session_agent_linux.h"
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
constexpr int kDefaultTimeout = -1;
constexpr gboolean kIncludeCursor = FALSE;
constexpr gboolean kFlash = TRUE;

void LogFailure(const char* message) {
  LogMessage(LogMessage::error).stream() << kLoggingRequestId_DbusScreenshotError << message;
}

struct Target {
  const char* bus_name;
  const char* object_path;
  const char* interface;
};

constexpr Target kGnome = {kGnomeDbusBusName, kGnomeDbusObjectPath, kGnomeDbusInterface};
constexpr Target kKde = {kKdeDbusBusName, kKdeDbusObjectPath, kKdeDbusInterface};

// The reply, or null with the reason in `error`. Consumes floating parameters.
GVariantPtr Call(GDBusConnection* bus, const Target& target, const char* method,
                 GVariant* parameters, GErrorPtr* error) {
  return GVariantPtr(g_dbus_connection_call_sync(
      bus, target.bus_name, target.object_path, target.interface, method, parameters, nullptr,
      G_DBUS_CALL_FLAGS_NONE, kDefaultTimeout, nullptr, CollectError(error)));
}

// The same on the session bus, with the reason of a failure logged.
GVariantPtr CallOrLog(const Target& target, const char* method, GVariant* parameters) {
  const GVariantPtr owned(parameters ? g_variant_ref_sink(parameters) : nullptr);
  GErrorPtr error;
  const auto bus = ConnectSessionBus(&error);
  GVariantPtr reply;
  if (bus) reply = Call(bus.get(), target, method, owned.get(), &error);
  if (!reply) LogFailure(error->message);
  return reply;
}

// A compositor of another version may answer anything.
bool HasType(GVariant* reply, const char* type) {
  if (g_variant_is_of_type(reply, G_VARIANT_TYPE(type))) return true;
  LogMessage(LogMessage::error).stream()
      << kLoggingRequestId_DbusScreenshotError << "unexpected reply of type "
      << g_variant_get_type_string(reply) << ", wanted " << type;
  return false;
}

bool AnswersProbe(GDBusConnection* bus, const Target& target) {
  const Target introspection = {target.bus_name, target.object_path, kDbusIntrospectIinterface};
  GErrorPtr error;
  return Call(bus, introspection, kDbusIntrospect, nullptr, &error) != nullptr;
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
    gnome = AnswersProbe(bus.get(), kGnome);
    plasma = AnswersProbe(bus.get(), kKde);
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
                 g_variant_new("(bbs)", kIncludeCursor, kFlash, path.c_str()))) {
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
  g_dbus_connection_call(bus.get(), kGnomeDbusBusName, kGnomeDbusObjectPath, kGnomeDbusInterface,
                         kGnomeDbusFunctionSelectArea, nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE,
                         G_MAXINT, nullptr, select_area_done, request.release());
}

void GnomeDbusScreenshot::select_area_done(GObject* source, GAsyncResult* result, void* user_data) {
  const EventScope event_scope;
  const std::unique_ptr<AreaRequest> request(static_cast<AreaRequest*>(user_data));
  GErrorPtr error;
  GVariantPtr reply(
      g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, CollectError(&error)));
  if (!reply && g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
    return CompleteWithoutPicture(kSnapSelectionCancelled, request->data, request->callback);
  }
  if (!reply) LogFailure(error->message);
  if (!reply || !HasType(reply.get(), "(iiii)")) {
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
                 g_variant_new("(iiiibs)", x, y, width, height, kFlash, path.c_str()))) {
    return CompleteWithoutPicture(kSnapSelectionFailed, data, callback);
  }
  tmp_files_.push_back(path);
  auto pixbuf = AdoptGObject(LoadImage(path));
  if (!pixbuf) return CompleteWithoutPicture(kSnapCompleted, data, callback);
  PublishPicture(&data->snap, Encode(pixbuf.get()));
  pixbuf.reset();
  OnScreenSnapCompleted(kSnapCompleted, &data->snap, callback, true);
}

GdkPixbuf* PlasmaDbusScreenshot::SnapWholeDesktop() {
  return Capture(kKdeDbusFunctionScreenshot, nullptr);
}

GdkPixbuf* PlasmaDbusScreenshot::SnapActiveDisplay() {
  return Capture(kKdeDbusFunctionScreenshotScreen, g_variant_new("(i)", DefaultScreenNumber()));
}

void PlasmaDbusScreenshot::SnapSelection(DesktopSessionData* /*data*/, void* /*callback*/) {}

GdkPixbuf* PlasmaDbusScreenshot::Capture(const char* method, GVariant* parameters) {
  const GVariantPtr reply = CallOrLog(kKde, method, parameters);
  if (!reply || !HasType(reply.get(), "(s)")) return nullptr;
  const char* path = nullptr;
  g_variant_get(reply.get(), "(&s)", &path);
  tmp_files_.emplace_back(path);
  return LoadImage(path);
}

}  // namespace kiv
