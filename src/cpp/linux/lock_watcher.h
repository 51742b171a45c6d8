#ifndef SRC_CPP_LINUX_LOCK_WATCHER_H_
#define SRC_CPP_LINUX_LOCK_WATCHER_H_

namespace kiv {

struct DesktopSessionData;

// Subscribes to the screen savers' signals on the session bus; without a bus nothing happens.
void SubscribeLockSignals(DesktopSessionData* data);
// Removes the subscriptions and drops the connection's reference. May be called again.
void UnsubscribeLockSignals(DesktopSessionData* data);
// Removes the subscriptions, then closes the connection, for everybody who shares it.
void CloseSessionBus(DesktopSessionData* data);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_LOCK_WATCHER_H_
