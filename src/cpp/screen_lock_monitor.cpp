#include "screen_lock_monitor.h"

#include <set>

#include "addon.h"
#include "js_callback.h"
#include "screen_lock_events.h"

namespace kiv {

namespace {

// All existing monitors.
class LiveMonitors {
 public:
  void Add(ScreenLockMonitor* monitor) { monitors_.insert(monitor); }
  void Remove(ScreenLockMonitor* monitor) { monitors_.erase(monitor); }
  // Each destructor removes its monitor from the set.
  void DeleteAll() {
    while (!monitors_.empty()) delete *monitors_.begin();
  }

 private:
  std::set<ScreenLockMonitor*> monitors_;
};

LiveMonitors live_monitors;

}  // namespace

ScreenLockMonitor::ScreenLockMonitor(DesktopSessionAgent* agent) : agent_(agent) {
  live_monitors.Add(this);
}

ScreenLockMonitor::~ScreenLockMonitor() {
  live_monitors.Remove(this);
  if (agent_) agent_->screen_lock_monitor_ = nullptr;
}

void ScreenLockMonitor::DeleteAll() { live_monitors.DeleteAll(); }

void ScreenLockMonitor::Emit(const char* event) {
  JsScope scope;
  if (!scope.usable()) return;
  v8::Local<v8::Value> argv[] = {ToJsString(event)};
  // Keeps the object, which owns this monitor, from being collected during the calls.
  const v8::Local<v8::Object> object = handle();
  if (!emit_callback_) emit_callback_ = MakeCallback(scope.Get(object, "emit"));
  if (emit_callback_) scope.Call(emit_callback_->GetFunction(), object, 1, argv);
}

void EmitScreenLockEvent(ScreenLockMonitor* monitor, const char* event) { monitor->Emit(event); }

void CreateScreenLockMonitor(const CallInfo& info) {
  if (!info.IsConstructCall()) return Nan::ThrowError("`new` is required");
  auto* monitor = new ScreenLockMonitor(&Agent());
  monitor->Bind(info.This());
  Agent().screen_lock_monitor_ = monitor;
  info.GetReturnValue().Set(info.This());
}

}  // namespace kiv
