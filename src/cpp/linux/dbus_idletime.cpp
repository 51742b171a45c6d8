#include "dbus_idletime.h"

#include "../log_request_ids.h"
#include "../logging.h"
#include "session_bus.h"

namespace kiv {

namespace {

constexpr char kGnomeDbusBusName[] = "org.gnome.Mutter.IdleMonitor";
constexpr char kGnomeDbusObjectPath[] = "/org/gnome/Mutter/IdleMonitor/Core";
constexpr char kGnomeDbusInterface[] = "org.gnome.Mutter.IdleMonitor";
constexpr char kGnomeDbusFunctionIdleTime[] = "GetIdletime";
constexpr int kDefaultTimeout = -1;

GVariantPtr AskMutter(GErrorPtr* error) {
  const auto bus = ConnectSessionBus(error);
  if (!bus) return nullptr;
  return GVariantPtr(g_dbus_connection_call_sync(bus.get(), kGnomeDbusBusName, kGnomeDbusObjectPath,
                                                 kGnomeDbusInterface, kGnomeDbusFunctionIdleTime,
                                                 nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE,
                                                 kDefaultTimeout, nullptr, CollectError(error)));
}

}  // namespace

bool GnomeIdleTime::GetIdleTime(long long& idle_ms) {
  GErrorPtr error;
  const GVariantPtr reply = AskMutter(&error);
  if (!reply) {
    LogMessage(LogMessage::error).stream() << kLoggingRequestId_DbusIdleTimeError << error->message;
    return false;
  }
  if (!g_variant_is_of_type(reply.get(), G_VARIANT_TYPE("(t)"))) {
    LogMessage(LogMessage::error).stream()
        << kLoggingRequestId_DbusIdleTimeError << "unexpected reply of type "
        << g_variant_get_type_string(reply.get());
    return false;
  }
  guint64 milliseconds = 0;
  g_variant_get(reply.get(), "(t)", &milliseconds);
  idle_ms = static_cast<long long>(milliseconds);
  return true;
}

}  // namespace kiv
