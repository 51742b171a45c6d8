#include "lock_watcher.h"

#include <cstring>

#include "glib_ptr.h"

namespace kiv {

namespace {

struct LockSignal {
  const char* interface;
  const char* member;
  const char* path;
};

constexpr LockSignal kLockSignals[kLockSignalCount] = {
    {"org.gnome.ScreenSaver", "ActiveChanged", "/org/gnome/ScreenSaver"},
    {"org.freedesktop.ScreenSaver", "ActiveChanged", "/org/freedesktop/ScreenSaver"},
    {"org.cinnamon.ScreenSaver", "ActiveChanged", "/org/cinnamon/ScreenSaver"},
    {"com.ubuntu.Upstart0_6", "EventEmitted", "/com/ubuntu/Upstart"},
};

}  // namespace

void SubscribeLockSignals(GDBusConnection* bus, GDBusSignalCallback callback, void* user_data,
                          unsigned (&subscription_ids)[kLockSignalCount]) {
  unsigned* id = subscription_ids;
  for (const LockSignal& signal : kLockSignals) {
    *id++ = g_dbus_connection_signal_subscribe(bus, nullptr, signal.interface, signal.member,
                                               signal.path, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
                                               callback, user_data, nullptr);
  }
}

void UnsubscribeLockSignals(GDBusConnection* bus,
                            const unsigned (&subscription_ids)[kLockSignalCount]) {
  for (const unsigned id : subscription_ids) g_dbus_connection_signal_unsubscribe(bus, id);
}

std::optional<bool> ReadLockSignal(const char* signal_name, GVariant* parameters) {
  if (!g_variant_is_container(parameters) || g_variant_n_children(parameters) == 0) {
    return std::nullopt;
  }
  const GVariantPtr first(g_variant_get_child_value(parameters, 0));
  if (std::strcmp(signal_name, "ActiveChanged") == 0) {
    if (!g_variant_is_of_type(first.get(), G_VARIANT_TYPE_BOOLEAN)) return std::nullopt;
    return g_variant_get_boolean(first.get()) != FALSE;
  }
  if (std::strcmp(signal_name, "EventEmitted") == 0) {
    if (!g_variant_is_of_type(first.get(), G_VARIANT_TYPE_STRING)) return std::nullopt;
    const char* event = g_variant_get_string(first.get(), nullptr);
    if (std::strcmp(event, "desktop-lock") == 0) return true;
    if (std::strcmp(event, "desktop-unlock") == 0) return false;
  }
  return std::nullopt;
}

}  // namespace kiv
