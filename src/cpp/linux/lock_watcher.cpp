#include "lock_watcher.h"

#include <cstring>
#include <optional>

#include "../event_scope.h"
#include "../log_request_ids.h"
#include "../logging.h"
#include "../screen_lock_events.h"
#include "desktop_session_agent_linux.h"
#include "session_bus.h"

namespace kiv {

namespace {

struct LockSignal {
  const char* interface;
  const char* member;
  const char* path;
};

constexpr LockSignal kLockSignals[] = {
    {"org.gnome.ScreenSaver", "ActiveChanged", "/org/gnome/ScreenSaver"},
    {"org.freedesktop.ScreenSaver", "ActiveChanged", "/org/freedesktop/ScreenSaver"},
    {"org.cinnamon.ScreenSaver", "ActiveChanged", "/org/cinnamon/ScreenSaver"},
    {"com.ubuntu.Upstart0_6", "EventEmitted", "/com/ubuntu/Upstart"},
};

// Locked or unlocked, or neither. Signals come from strangers: any other shape is no event.
std::optional<bool> IsLocked(const char* signal_name, GVariant* parameters) {
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

}  // namespace

void DesktopSessionData::OnDBusSignalReceived(GDBusConnection* /*connection*/,
                                              const char* /*sender_name*/,
                                              const char* /*object_path*/,
                                              const char* /*interface_name*/,
                                              const char* signal_name, GVariant* parameters,
                                              void* user_data) {
  const EventScope event_scope;
  if (!user_data) return;
  const auto locked = IsLocked(signal_name, parameters);
  if (!locked) return;
  LogMessage(LogMessage::info).stream() << kLoggingRequestId_SessionBusSignal;
  const auto* agent = static_cast<DesktopSessionAgent*>(user_data);
  if (!agent->screen_lock_monitor_) return;
  EmitScreenLockEvent(agent->screen_lock_monitor_, *locked ? kScreenLockEvent : kScreenUnlockEvent);
}

void SubscribeLockSignals(DesktopSessionData* data) {
  GErrorPtr error;
  data->bus = ConnectSessionBus(&error).release();
  if (!data->bus) return;
  unsigned* id = data->subscription_ids;
  for (const LockSignal& signal : kLockSignals) {
    *id++ = g_dbus_connection_signal_subscribe(
        data->bus, nullptr, signal.interface, signal.member, signal.path, nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE, DesktopSessionData::OnDBusSignalReceived, data->agent, nullptr);
  }
  data->dbus_subscribed = true;
}

void UnsubscribeLockSignals(DesktopSessionData* data) {
  if (!data->dbus_subscribed) return;
  data->dbus_subscribed = false;
  for (const unsigned id : data->subscription_ids) {
    g_dbus_connection_signal_unsubscribe(data->bus, id);
  }
  g_object_unref(data->bus);
  data->bus = nullptr;
}

void CloseSessionBus(DesktopSessionData* data) {
  const auto bus = RetainGObject(data->bus);
  UnsubscribeLockSignals(data);
  if (bus) CloseSessionBus(bus.get());
}

}  // namespace kiv
