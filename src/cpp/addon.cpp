#include "addon.h"

#include <utility>

#include "conversions.h"
#include "js_callback.h"
#include "js_runtime.h"
#include "logging.h"
#include "screen_lock_monitor.h"
#include "snap_calls.h"

namespace kiv {

namespace {

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> module, void* priv);

}  // namespace

NODE_MODULE(kiv_native, Setup)

namespace {

// Never destroyed: exit() in a forked child would close the polls that the child shares with this
// process, and Xlib would wait for a server that hangs.
DesktopSessionAgent& desktop_session_agent = *new DesktopSessionAgent;

void ReleaseRuntime() {
  desktop_session_agent.OnRuntimeEnd();
  ScreenLockMonitor::DeleteAll();
  LogMessage::Setup(nullptr);
}

void Init(const CallInfo& /*info*/) {
  const EntryScope entry;
  desktop_session_agent.Setup();
}

void Teardown(const CallInfo& /*info*/) {
  const EntryScope entry;
  desktop_session_agent.Teardown();
}

void IsWayland(const CallInfo& info) {
  info.GetReturnValue().Set(desktop_session_agent.IsWayland());
}

void SetupLogger(const CallInfo& info) { LogMessage::Setup(FunctionArgument(info, 0)); }

double SecondsOrMinusOne(const OptionalSeconds& seconds) {
  return seconds.set ? static_cast<double>(seconds.value) : -1.0;
}

void GetInputInfo(const CallInfo& info) {
  const EntryScope entry;
  desktop_session_agent.UpdateLastTimes();
  const DesktopSessionData& data = desktop_session_agent.data_;
  const v8::Local<v8::Object> last = Nan::New<v8::Object>();
  SetKey(last, "input", SecondsOrMinusOne(data.last_input));
  SetKey(last, "keyPress", SecondsOrMinusOne(data.last_key_press));
  SetKey(last, "mouseClick", SecondsOrMinusOne(data.last_mouse_click));
  SetKey(last, "mouseMove", SecondsOrMinusOne(data.last_mouse_move));
  const v8::Local<v8::Object> result = Nan::New<v8::Object>();
  SetKey(result, "last", last);
  SetKey(result, "keyboardActivity", static_cast<double>(data.keyboard_activity));
  SetKey(result, "mouseActivity", static_cast<double>(data.mouse_activity));
  info.GetReturnValue().Set(result);
}

void SetInterval(const CallInfo& info) {
  const EntryScope entry;
  auto callback = FunctionArgument(info, 0);
  const auto interval = IntegerArgument(info, 1);
  if (!interval) return;
  // Only the low 32 bits count.
  const auto milliseconds = static_cast<int32_t>(static_cast<uint32_t>(*interval));
  desktop_session_agent.SetInterval(std::move(callback), milliseconds);
}

void GetProcessHandlesInfo(const CallInfo& info) {
  const EntryScope entry;
  const v8::Local<v8::Object> result = Nan::New<v8::Object>();
  const auto pid = IntegerArgument(info, 0);
  if (!pid) return;
  const ProcessHandlesInfo* counts =
      desktop_session_agent.GetProcessHandlesInfo(static_cast<unsigned long>(*pid));
  const auto set = [&](const char* key, uint64_t ProcessHandlesInfo::*count) {
    v8::Local<v8::Value> value = Nan::Null();
    if (counts) value = Nan::New(static_cast<double>(counts->*count));
    SetKey(result, key, value);
  };
  set("handleCount", &ProcessHandlesInfo::handles);
  set("gdiObjectCount", &ProcessHandlesInfo::gdi_objects);
  set("guiUserObjectCount", &ProcessHandlesInfo::gui_user_objects);
  info.GetReturnValue().Set(result);
}

void Upgrade(const CallInfo& info) {
  const EntryScope entry;
  const auto path = StringArgument(info, 0);
  if (!path) return;
  info.GetReturnValue().Set(desktop_session_agent.Upgrade(*path, BooleanArgument(info, 1)));
}

void ExportScreenLockMonitor(v8::Local<v8::Object> exports) {
  const Nan::HandleScope scope;
  const auto name = Nan::New("ScreenLockMonitor").ToLocalChecked();
  const auto monitor = Nan::New<v8::FunctionTemplate>(CreateScreenLockMonitor);
  monitor->SetClassName(name);
  monitor->InstanceTemplate()->SetInternalFieldCount(1);
  Nan::Set(exports, name, Nan::GetFunction(monitor).ToLocalChecked());
}

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  // Our libuv handles belong to the default loop, which a worker's thread does not run.
  if (Nan::GetCurrentEventLoop() != uv_default_loop()) {
    return Nan::ThrowError("kiv_native works on the main thread only");
  }
  if (!JsRuntime::Get().Start(ReleaseRuntime)) {
    return Nan::ThrowError("kiv_native is loaded in another context already");
  }
  ExportScreenLockMonitor(exports);
  Nan::SetMethod(exports, "init", Init);
  Nan::SetMethod(exports, "getInputInfo", GetInputInfo);
  Nan::SetMethod(exports, "getProcessHandlesInfo", GetProcessHandlesInfo);
  Nan::SetMethod(exports, "getScreenSnap", GetScreenSnap);
  Nan::SetMethod(exports, "getScreenSnapAsync", GetScreenSnapAsync);
  Nan::SetMethod(exports, "setupLogger", SetupLogger);
  Nan::SetMethod(exports, "setInterval", SetInterval);
  Nan::SetMethod(exports, "upgrade", Upgrade);
  Nan::SetMethod(exports, "isWayland", IsWayland);
  Nan::SetMethod(exports, "teardown", Teardown);
}

}  // namespace

DesktopSessionAgent& Agent() { return desktop_session_agent; }

}  // namespace kiv

// The load-time initialiser runs only once per process. When another thread or context loads the
// library again, for example a worker, the runtime calls this function instead.
extern "C" NODE_MODULE_EXPORT void NODE_MODULE_INITIALIZER(v8::Local<v8::Object> exports,
                                                           v8::Local<v8::Value> module,
                                                           v8::Local<v8::Context> /*context*/) {
  kiv::Setup(exports, module, nullptr);
}
