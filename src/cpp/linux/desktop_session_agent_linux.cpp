#include "desktop_session_agent_linux.h"

#include <nan.h>

#include <utility>

#include "../event_scope.h"
#include "../js_callback.h"
#include "../log_request_ids.h"
#include "../logging.h"
#include "../screen_lock_events.h"
#include "capture.h"
#include "late_pictures.h"
#include "lock_watcher.h"
#include "session_bus.h"
#include "session_type.h"
#include "upgrade_launcher.h"
#include "user_selection_helper_linux.h"

namespace kiv {

namespace {

// The active window's title and process. Logging its warnings enters JavaScript.
ActiveTask FetchActiveTaskInfo(DesktopSessionData* data) {
  ActiveTask task;
  if (data->display()) task = ReadActiveTask(data->display(), *data);
  data->x_connection.AfterRoundTrip();
  for (const std::string& line : task.warnings) LogMessage(LogMessage::warn).stream() << line;
  return task;
}

void SetTexts(ScreenSnap* snap, ActiveTask task) {
  snap->activeWindowTitle = std::move(task.title);
  snap->activeProcessName = std::move(task.process);
}

void HandleNextEvent(void* self) {
  auto* data = static_cast<DesktopSessionData*>(self);
  const auto press = TakeRawPress(data->display(), data->xi_opcode);
  if (!press || !IsNewPress(*press, data)) return;
  if (IsEscape(*press)) data->selection->EscPressed();
  CountPress(*press, uv_hrtime(), data);
}

// The timer, lock events and the bus do not need the X server and keep working.
void OnDisplayLost(void* self) {
  static_cast<DesktopSessionData*>(self)->x_connection.Close();
  LogMessage(LogMessage::error).stream() << kLoggingRequestId_DisplayLost;
}

void OnTick(void* self) {
  auto* data = static_cast<DesktopSessionData*>(self);
  if (!data->interval_callback) return;
  JsScope scope;
  if (scope.usable()) scope.Call(*data->interval_callback, 0, nullptr);
}

}  // namespace

DesktopSessionData::DesktopSessionData() : selection(new UserSelectionImpLinux(this)) {
  define_session_type();
}

DesktopSessionData::~DesktopSessionData() = default;

void DesktopSessionData::define_session_type() {
  if (is_x11 || is_wayland) return;
  is_x11 = IsX11Session();
  is_wayland = !is_x11;
}

void DesktopSessionData::SnapSelection(void* context) { selection->start_selection(context); }

void DesktopSessionData::Subscribe() {
  GErrorPtr error;
  bus = ConnectSessionBus(&error).release();
  if (!bus) return;
  SubscribeLockSignals(bus, OnDBusSignalReceived, agent, subscription_ids);
  dbus_subscribed = true;
}

void DesktopSessionData::Unsubscribe() {
  if (!dbus_subscribed) return;
  dbus_subscribed = false;
  screen_locked = false;  // unknown without signals
  UnsubscribeLockSignals(bus, subscription_ids);
  g_object_unref(std::exchange(bus, nullptr));
}

void DesktopSessionData::Release() {
  interval_timer.Close();
  Unsubscribe();
  x_connection.Close();
}

void DesktopSessionData::Shutdown() {
  interval_timer.Close();
  if (const auto connection = RetainGObject(bus)) {
    Unsubscribe();
    CloseSessionBus(connection.get());
  }
  ForgetLatePictures();
  x_connection.Close();
}

void DesktopSessionData::OnDBusSignalReceived(GDBusConnection* /*connection*/,
                                              const char* /*sender_name*/,
                                              const char* /*object_path*/,
                                              const char* /*interface_name*/,
                                              const char* signal_name, GVariant* parameters,
                                              void* user_data) {
  const EventScope event_scope;
  if (!user_data) return;
  const auto locked = ReadLockSignal(signal_name, parameters);
  if (!locked) return;
  auto* agent = static_cast<DesktopSessionAgent*>(user_data);
  agent->data_.screen_locked = *locked;
  LogMessage(LogMessage::info).stream() << kLoggingRequestId_SessionBusSignal;
  if (!agent->screen_lock_monitor_) return;
  EmitScreenLockEvent(agent->screen_lock_monitor_, *locked ? kScreenLockEvent : kScreenUnlockEvent);
}

DesktopSessionAgent::DesktopSessionAgent() { uv_mutex_init(&mutex_); }

DesktopSessionAgent::~DesktopSessionAgent() { uv_mutex_destroy(&mutex_); }

int DesktopSessionAgent::Setup() {
  // Hold the bus connection until Connect() has subscribed again.
  const auto bus = RetainGObject(data_.bus);
  data_.Release();
  return Connect();
}

int DesktopSessionAgent::Connect() {
  data_.agent = this;
  data_.Subscribe();

  _XDisplay* const display = data_.x_connection.Open();
  if (!display) return 1;
  const auto opcode = FindXInput(display);
  if (!opcode) return 1;
  data_.xi_opcode = *opcode;
  if (!data_.interval_timer.Create()) return 1;
  data_.screens = SelectRawInput(display);
  static_cast<ActiveWindowAtoms&>(data_) = InternActiveWindowAtoms(display);
  if (!data_.x_connection.StartReading({HandleNextEvent, OnDisplayLost, &data_})) return 1;
  if (!data_.interval_timer.Watch(OnTick, &data_)) return 1;
  return 0;
}

void DesktopSessionAgent::Teardown() {
  data_.Shutdown();
  // Escape cannot reach the overlay without the agent's connection. Fail last, because the
  // completion may call anything.
  data_.selection->Fail();
}

void DesktopSessionAgent::OnRuntimeEnd() {
  data_.Release();
  data_.interval_callback.reset();
  data_.selection->Drop();
  ForgetLatePictures();
}

void DesktopSessionAgent::UpdateLastTimes() {
  data_.last_key_press = kUnknownSeconds;
  data_.last_mouse_click = kUnknownSeconds;
  data_.last_mouse_move = kUnknownSeconds;
  data_.last_input = kUnknownSeconds;
  if (!data_.is_x11) {
    data_.last_input = IdleTimeOfMutter();
  } else if (data_.display()) {
    data_.last_input = IdleTimeOfX(data_.display());
    data_.x_connection.AfterRoundTrip();
  }
}

void DesktopSessionAgent::SetInterval(std::unique_ptr<Nan::Callback> callback, int milliseconds) {
  data_.interval_timer.Arm(0);
  std::swap(data_.interval_callback, callback);
  if (data_.interval_callback && milliseconds > 0) data_.interval_timer.Arm(milliseconds);
}

ScreenSnap* DesktopSessionAgent::SnapWholeDesktop(bool jpeg, bool limit_size) {
  return Snap(CaptureArea::kDesktop, jpeg, limit_size);
}

ScreenSnap* DesktopSessionAgent::SnapActiveDisplay(bool jpeg, bool limit_size) {
  return Snap(CaptureArea::kDisplay, jpeg, limit_size);
}

ScreenSnap* DesktopSessionAgent::Snap(CaptureArea area, bool jpeg, bool limit_size) {
  data_.define_session_type();
  ScreenSnap snap;
  SetTexts(&snap, FetchActiveTaskInfo(&data_));
  PublishPicture(&snap, CaptureScreen(area, {data_.is_x11, data_.screen_locked}, jpeg, limit_size));
  PublishSnap(&data_.snap, std::move(snap));
  return &data_.snap;
}

ScreenSnap* DesktopSessionAgent::SnapSelection(void* context) {
  data_.define_session_type();
  // Read before the overlay becomes the active window.
  SetTexts(&data_.snap, FetchActiveTaskInfo(&data_));
  data_.SnapSelection(context);
  return &data_.snap;
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

int DesktopSessionAgent::Upgrade(const std::string& path, bool relaunch) const {
  return LaunchUpgrade(path, relaunch);
}

const ProcessHandlesInfo* DesktopSessionAgent::GetProcessHandlesInfo(unsigned long /*pid*/) const {
  return nullptr;
}

}  // namespace kiv
