#include "interval_timer.h"

#include <nan.h>
#include <unistd.h>

#include "../js_callback.h"
#include "desktop_session_agent_linux.h"

namespace kiv {

namespace {

void PollTimerCallback(uv_poll_t* handle, int status, int /*events*/) {
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

}  // namespace

bool StartTimerPoll(DesktopSessionData* data) {
  data->timer_poll_active = data->timer_poll.Start(data->timer_fd, PollTimerCallback, data);
  return data->timer_poll_active;
}

void StopTimerPoll(DesktopSessionData* data) {
  data->timer_poll.Close();
  data->timer_poll_active = false;
}

}  // namespace kiv
