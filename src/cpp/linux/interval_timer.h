#ifndef SRC_CPP_LINUX_INTERVAL_TIMER_H_
#define SRC_CPP_LINUX_INTERVAL_TIMER_H_

#include "../unique_fd.h"
#include "../uv_ptr.h"

namespace kiv {

// A kernel timer that calls back from libuv's default loop.
class IntervalTimer {
 public:
  // Creates a disarmed timer. Returns false on failure.
  bool Create();
  // Starts watching the created timer; returns false when libuv fails. Each call of `on_tick`
  // covers all periods that have passed since the last one. It may close the timer.
  bool Watch(void (*on_tick)(void* self), void* self);
  // Ticks every `milliseconds` from now on; 0 disarms. Does nothing without a timer.
  void Arm(int milliseconds) const;
  // May be called repeatedly.
  void Close();

 private:
  static void PollTimerCallback(uv_poll_t* handle, int status, int events);
  // Reads the timer. Returns whether a period has passed since the last call.
  bool TakeExpirations() const;

  void (*on_tick_)(void* self) = nullptr;
  void* self_ = nullptr;
  UniqueFd timer_fd_;
  UvPtr<uv_poll_t> timer_poll_;  // closed before the descriptor it watches
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_INTERVAL_TIMER_H_
