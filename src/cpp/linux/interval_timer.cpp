#include "interval_timer.h"

#include <nan.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <utility>

#include "../event_scope.h"
#include "../js_callback.h"
#include "desktop_session_agent_linux.h"

namespace kiv {

namespace {

void PollTimerCallback(uv_poll_t* handle, int status, int /*events*/) {
  const EventScope event_scope;
  auto* data = static_cast<DesktopSessionData*>(handle->data);
  if (status < 0) {
    StopTimerPoll(data);
    return;
  }
  // The expirations themselves do not matter: missed periods make one call.
  uint64_t expirations = 0;
  int reads = 0;
  while (read(data->timer_fd, &expirations, sizeof expirations) == sizeof expirations) ++reads;
  if (reads == 0 || !data->interval_callback) return;
  JsScope scope;
  if (scope.usable()) scope.Call(*data->interval_callback, 0, nullptr);
}

// A period of 0 disarms. Fails without harm when there is no descriptor.
void Arm(int fd, int milliseconds) {
  const timespec period = {milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
  const itimerspec timer = {period, period};
  timerfd_settime(fd, 0, &timer, nullptr);
}

}  // namespace

void DesktopSessionAgent::SetInterval(std::unique_ptr<Nan::Callback> callback, int milliseconds) {
  Arm(data_.timer_fd, 0);
  std::swap(data_.interval_callback, callback);
  if (data_.interval_callback && milliseconds > 0) Arm(data_.timer_fd, milliseconds);
}

bool StartTimerPoll(DesktopSessionData* data) {
  data->timer_poll_active = data->timer_poll.Start(data->timer_fd, PollTimerCallback, data);
  return data->timer_poll_active;
}

void StopTimerPoll(DesktopSessionData* data) {
  data->timer_poll.Close();
  data->timer_poll_active = false;
}

}  // namespace kiv
