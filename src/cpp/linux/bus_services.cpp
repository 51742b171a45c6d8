#include "bus_services.h"

#include <algorithm>
#include <iterator>

#include "session_bus.h"

namespace kiv {

namespace {

constexpr BusObject kBusDaemon = {"org.freedesktop.DBus", "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus"};
constexpr GDBusError kAbsent[] = {G_DBUS_ERROR_SERVICE_UNKNOWN, G_DBUS_ERROR_NAME_HAS_NO_OWNER,
                                  G_DBUS_ERROR_UNKNOWN_OBJECT, G_DBUS_ERROR_UNKNOWN_INTERFACE,
                                  G_DBUS_ERROR_UNKNOWN_METHOD};

}  // namespace

std::optional<std::string> OwnerOf(const char* bus_name, const Deadline& deadline,
                                   GErrorPtr* error) {
  const GVariantPtr reply =
      CallSessionBus(kBusDaemon, "GetNameOwner", g_variant_new("(s)", bus_name), "(s)", error,
                     deadline.Remaining());
  if (!reply && SaysAbsent(error->get())) {
    error->reset();
    return std::string();
  }
  if (!reply) return std::nullopt;
  const char* owner = nullptr;
  g_variant_get(reply.get(), "(&s)", &owner);
  return std::string(owner);
}

bool SaysAbsent(const GError* error) {
  return std::any_of(std::begin(kAbsent), std::end(kAbsent),
                     [&](GDBusError code) { return g_error_matches(error, G_DBUS_ERROR, code); });
}

}  // namespace kiv
