#ifndef SRC_CPP_LINUX_LOCK_WATCHER_H_
#define SRC_CPP_LINUX_LOCK_WATCHER_H_

#include <gio/gio.h>

#include <optional>

namespace kiv {

constexpr int kLockSignalCount = 4;

// Subscribes to the screen savers' signals. `user_data` must live until they are unsubscribed.
void SubscribeLockSignals(GDBusConnection* bus, GDBusSignalCallback callback, void* user_data,
                          unsigned (&subscription_ids)[kLockSignalCount]);
void UnsubscribeLockSignals(GDBusConnection* bus,
                            const unsigned (&subscription_ids)[kLockSignalCount]);

// True for locked, false for unlocked. Signals come from untrusted peers: any other name or shape
// gives nothing.
std::optional<bool> ReadLockSignal(const char* signal_name, GVariant* parameters);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_LOCK_WATCHER_H_
