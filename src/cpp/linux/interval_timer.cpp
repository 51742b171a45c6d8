#include "interval_timer.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>

#include "../event_scope.h"

namespace kiv {

bool IntervalTimer::Create() {
  Close();
  timer_fd_.reset(timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC));
  return static_cast<bool>(timer_fd_);
}

bool IntervalTimer::Watch(void (*on_tick)(void* self), void* self) {
  on_tick_ = on_tick;
  self_ = self;
  timer_poll_ = MakeUvHandle(uv_poll_init, uv_default_loop(), this, timer_fd_.get());
  if (timer_poll_ && uv_poll_start(timer_poll_.get(), UV_READABLE, PollTimerCallback) == 0)
    return true;
  timer_poll_.reset();
  return false;
}

void IntervalTimer::Arm(int milliseconds) const {
  const timespec period = {milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
  const itimerspec timer = {period, period};
  timerfd_settime(timer_fd_.get(), 0, &timer, nullptr);
}

void IntervalTimer::Close() {
  timer_poll_.reset();
  timer_fd_.reset();
}

void IntervalTimer::PollTimerCallback(uv_poll_t* handle, int status, int /*events*/) {
  const EventScope event_scope;
  auto* timer = static_cast<IntervalTimer*>(handle->data);
  if (status < 0) {
    timer->timer_poll_.reset();
  } else if (timer->TakeExpirations()) {
    timer->on_tick_(timer->self_);
  }
}

bool IntervalTimer::TakeExpirations() const {
  uint64_t expirations = 0;
  bool any = false;
  while (read(timer_fd_.get(), &expirations, sizeof expirations) == sizeof expirations) any = true;
  return any;
}

}  // namespace kiv
