#include "dbus_idletime.h"

#include "../log_request_ids.h"
#include "logged_bus_call.h"

namespace kiv {

namespace {

constexpr char kGnomeDbusBusName[] = "org.gnome.Mutter.IdleMonitor";
constexpr char kGnomeDbusObjectPath[] = "/org/gnome/Mutter/IdleMonitor/Core";
constexpr char kGnomeDbusInterface[] = "org.gnome.Mutter.IdleMonitor";
constexpr char kGnomeDbusFunctionIdleTime[] = "GetIdletime";

constexpr BusObject kMutter = {kGnomeDbusBusName, kGnomeDbusObjectPath, kGnomeDbusInterface};

}  // namespace

bool GnomeIdleTime::GetIdleTime(long long& idle_ms) {
  GErrorPtr error;
  const GVariantPtr reply = CallSessionBusOrLog(kLoggingRequestId_DbusIdleTimeError, kMutter,
                                                kGnomeDbusFunctionIdleTime, nullptr, "(t)", &error);
  if (!reply) return false;
  guint64 milliseconds = 0;
  g_variant_get(reply.get(), "(t)", &milliseconds);
  idle_ms = static_cast<long long>(milliseconds);
  return true;
}

}  // namespace kiv
