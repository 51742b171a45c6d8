#ifndef SRC_CPP_SCREEN_LOCK_EVENTS_H_
#define SRC_CPP_SCREEN_LOCK_EVENTS_H_

namespace kiv {

class ScreenLockMonitor;

constexpr char kScreenLockEvent[] = "screen_lock";
constexpr char kScreenUnlockEvent[] = "screen_unlock";

// Calls the JavaScript object's `emit` with the event's name. The monitor keeps the first function
// it finds under that name. The call may run any JavaScript and may end the monitor.
void EmitScreenLockEvent(ScreenLockMonitor* monitor, const char* event);

}  // namespace kiv

#endif  // SRC_CPP_SCREEN_LOCK_EVENTS_H_
