#include "session_bus.h"

namespace kiv {

GObjectPtr<GDBusConnection> ConnectSessionBus(GErrorPtr* error) {
  auto bus = AdoptGObject(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, CollectError(error)));
  if (bus && g_dbus_connection_is_closed(bus.get())) {
    const GCharPtr address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, CollectError(error)));
    if (!address) return nullptr;
    const auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    bus = AdoptGObject(g_dbus_connection_new_for_address_sync(address.get(), flags, nullptr,
                                                              nullptr, CollectError(error)));
  }
  if (bus) g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
  return bus;
}

}  // namespace kiv
