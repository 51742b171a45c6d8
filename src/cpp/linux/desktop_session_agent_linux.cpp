#include "desktop_session_agent_linux.h"

#include <nan.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "glib_ptr.h"
#include "input_activity.h"
#include "interval_timer.h"
#include "lock_watcher.h"
#include "user_selection_helper_linux.h"
#include "x_connection.h"

namespace kiv {

DesktopSessionData::DesktopSessionData() : selection(new UserSelectionImpLinux(this)) {
  define_session_type();
}

// Nothing is stopped here: either the runtime's end has released everything, or the process is
// leaving without it and the kernel does.
DesktopSessionData::~DesktopSessionData() = default;

void DesktopSessionData::define_session_type() {
  if (is_x11 || is_wayland) return;
  const char* type = std::getenv("XDG_SESSION_TYPE");
  is_x11 = !type || std::strcmp(type, "x11") == 0;
  is_wayland = !is_x11;
}

void DesktopSessionData::Shutdown() {
  if (dbus_subscribed) CloseSessionBus(this);
  ReleaseSubscriptionsAndPolls();
}

void DesktopSessionData::ReleaseSubscriptionsAndPolls() {
  UnsubscribeLockSignals(this);
  StopInputPoll(this);
  StopTimerPoll(this);
}

void DesktopSessionData::ReleaseTimer() {
  StopTimerPoll(this);
  if (timer_fd < 0) return;
  close(timer_fd);
  timer_fd = -1;
}

void DesktopSessionData::ReleaseDisplay() {
  StopInputPoll(this);
  CloseXConnection(this);
}

DesktopSessionAgent::DesktopSessionAgent() { uv_mutex_init(&mutex_); }

DesktopSessionAgent::~DesktopSessionAgent() { uv_mutex_destroy(&mutex_); }

int DesktopSessionAgent::Setup() {
  // Kept until it is asked for again.
  const auto bus = RetainGObject(data_.bus);
  data_.ReleaseTimer();
  data_.ReleaseSubscriptionsAndPolls();
  data_.ReleaseDisplay();
  return Connect();
}

int DesktopSessionAgent::Connect() {
  data_.agent = this;
  SubscribeLockSignals(&data_);

  if (!OpenXConnection(&data_)) return 1;
  data_.timer_fd = timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC);
  if (data_.timer_fd == -1) return 1;
  SelectRawInput(data_.display);
  InternAtoms(&data_);
  if (!StartInputPoll(&data_)) return 1;
  if (!StartTimerPoll(&data_)) return 1;
  return 0;
}

void DesktopSessionAgent::Teardown() {
  data_.ReleaseTimer();
  data_.Shutdown();
  data_.ReleaseDisplay();
  // Without the agent's connection Escape would no longer reach the overlay. Last, because the
  // completion may call anything.
  data_.selection->Fail();
}

void DesktopSessionAgent::OnRuntimeEnd() {
  data_.ReleaseTimer();
  data_.ReleaseSubscriptionsAndPolls();
  data_.ReleaseDisplay();
  data_.interval_callback.reset();
  data_.selection->Drop();
}

bool DesktopSessionAgent::SnapGuardIsFree() {
  if (uv_mutex_trylock(&mutex_) != 0) return false;
  const bool ready = snap_ready_;
  uv_mutex_unlock(&mutex_);
  return ready;
}

void DesktopSessionAgent::TakeSnapGuard() { SetSnapReady(false); }

void DesktopSessionAgent::ReleaseSnapGuard() { SetSnapReady(true); }

void DesktopSessionAgent::SetSnapReady(bool ready) {
  uv_mutex_lock(&mutex_);
  snap_ready_ = ready;
  uv_mutex_unlock(&mutex_);
}

const ProcessHandlesInfo* DesktopSessionAgent::GetProcessHandlesInfo(unsigned long /*pid*/) const {
  return nullptr;
}

}  // namespace kiv
