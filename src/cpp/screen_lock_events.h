#ifndef SRC_CPP_SCREEN_LOCK_EVENTS_H_
#define SRC_CPP_SCREEN_LOCK_EVENTS_H_

namespace kiv {

class ScreenLockMonitor;

constexpr char kScreenLockEvent[] = "screen_lock";
constexpr char kScreenUnlockEvent[] = "screen_unlock";

// Calls the JavaScript object's own `emit` with the event's name. The first function found under
// that name is kept. Anything may have happened when it returns, the monitor's end included.
void EmitScreenLockEvent(ScreenLockMonitor* monitor, const char* event);

}  // namespace kiv

#endif  // SRC_CPP_SCREEN_LOCK_EVENTS_H_
