#include "dbus_screenshot.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "../log_request_ids.h"
#include "../logging.h"
#include "bus_services.h"
#include "dbus_screenshot_names.h"
#include "gnome_screenshot.h"
#include "logged_bus_call.h"
#include "picture_file.h"
#include "plasma_screenshot.h"

namespace kiv {

namespace {

constexpr char kDbusIntrospect[] = "Introspect";
constexpr char kDbusIntrospectIinterface[] = "org.freedesktop.DBus.Introspectable";
constexpr char kTmpDirVariable[] = "TMPDIR";
constexpr char kDefaultTmpDir[] = "/tmp";

bool AnswersProbe(const BusObject& object) {
  const BusObject introspection = {object.bus_name, object.object_path, kDbusIntrospectIinterface};
  GErrorPtr error;
  return CallSessionBus(introspection, kDbusIntrospect, nullptr, nullptr, &error) != nullptr;
}

bool SaysRefused(const GError* error) {
  if (!error || !g_dbus_error_is_remote_error(error)) return false;
  const GCharPtr name(g_dbus_error_get_remote_error(error));
  return std::strcmp(name.get(), kKdeDbusErrorNoAuthorized) == 0;
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
      LogScreenshotFailure(error->message);
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
  if (!pixbuf) LogScreenshotFailure(error->message);
  return pixbuf.release();
}

GVariantPtr DbusScreenshot::Call(const BusObject& object, const char* method, GVariant* parameters,
                                 const char* reply_type) {
  GErrorPtr error;
  auto reply = CallSessionBusOrLog(kLoggingRequestId_DbusScreenshotError, object, method,
                                   parameters, reply_type, &error);
  unavailable_ = !reply && (SaysRefused(error.get()) || SaysAbsent(error.get()));
  return reply;
}

void LogScreenshotFailure(const char* message) {
  LogMessage(LogMessage::error).stream() << kLoggingRequestId_DbusScreenshotError << message;
}

}  // namespace kiv
