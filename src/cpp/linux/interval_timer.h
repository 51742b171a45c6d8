#ifndef SRC_CPP_LINUX_INTERVAL_TIMER_H_
#define SRC_CPP_LINUX_INTERVAL_TIMER_H_

namespace kiv {

struct DesktopSessionData;

// Starts watching the timer descriptor from the loop; false when libuv refuses.
bool StartTimerPoll(DesktopSessionData* data);
void StopTimerPoll(DesktopSessionData* data);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_INTERVAL_TIMER_H_
