#include "bus_services.h"

#include <algorithm>
#include <iterator>

namespace kiv {

namespace {

constexpr BusObject kBusDaemon = {"org.freedesktop.DBus", "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus"};
constexpr GDBusError kAbsent[] = {G_DBUS_ERROR_SERVICE_UNKNOWN, G_DBUS_ERROR_NAME_HAS_NO_OWNER,
                                  G_DBUS_ERROR_UNKNOWN_OBJECT, G_DBUS_ERROR_UNKNOWN_INTERFACE,
                                  G_DBUS_ERROR_UNKNOWN_METHOD};

}  // namespace

std::optional<std::string> OwnerOf(GDBusConnection* bus, const char* bus_name,
                                   const Deadline& deadline, GErrorPtr* error) {
  const GVariantPtr reply =
      CallSessionBus(bus, kBusDaemon, "GetNameOwner", g_variant_new("(s)", bus_name), "(s)", error,
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

std::optional<pid_t> ProcessIdOf(GDBusConnection* bus, const std::string& unique_name,
                                 const Deadline& deadline) {
  GErrorPtr error;
  const GVariantPtr reply = CallSessionBus(bus, kBusDaemon, "GetConnectionUnixProcessID",
                                           g_variant_new("(s)", unique_name.c_str()), "(u)", &error,
                                           deadline.Remaining());
  if (!reply) return std::nullopt;
  guint32 pid = 0;
  g_variant_get(reply.get(), "(u)", &pid);
  return static_cast<pid_t>(pid);
}

std::optional<uint32_t> InterfaceVersion(GDBusConnection* bus, const BusObject& object,
                                         const Deadline& deadline, GErrorPtr* error) {
  const BusObject properties = {object.bus_name, object.object_path,
                                "org.freedesktop.DBus.Properties"};
  const GVariantPtr reply =
      CallSessionBus(bus, properties, "Get", g_variant_new("(ss)", object.interface, "version"),
                     "(v)", error, deadline.Remaining());
  if (!reply) return std::nullopt;
  GVariant* raw_value = nullptr;
  g_variant_get(reply.get(), "(v)", &raw_value);
  const GVariantPtr value(raw_value);
  if (!CheckReplyType(value.get(), "u", error)) return std::nullopt;
  return g_variant_get_uint32(value.get());
}

bool SaysAbsent(const GError* error) {
  return std::any_of(std::begin(kAbsent), std::end(kAbsent),
                     [&](GDBusError code) { return g_error_matches(error, G_DBUS_ERROR, code); });
}

}  // namespace kiv
