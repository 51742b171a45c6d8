#ifndef SRC_CPP_LINUX_INTERVAL_TIMER_H_
#define SRC_CPP_LINUX_INTERVAL_TIMER_H_

#include "../unique_fd.h"
#include "../uv_ptr.h"

namespace kiv {

// A kernel timer that calls back from the default loop.
class IntervalTimer {
 public:
  // Makes a disarmed timer; false when the kernel gives none.
  bool Create();
  // Starts watching a timer that was made; false when libuv refuses. `on_tick` is called once for
  // the periods that have passed, however many; it may close the timer.
  bool Watch(void (*on_tick)(void* self), void* self);
  // Ticks every so many milliseconds from now on; 0 disarms. Without a timer nothing happens.
  void Arm(int milliseconds) const;
  // May be called again.
  void Close();

 private:
  static void PollTimerCallback(uv_poll_t* handle, int status, int events);
  // Whether a period has passed since the last call.
  bool TakeExpirations() const;

  void (*on_tick_)(void* self) = nullptr;
  void* self_ = nullptr;
  UniqueFd timer_fd_;
  UvPtr<uv_poll_t> timer_poll_;  // closed before the descriptor it watches
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_INTERVAL_TIMER_H_
