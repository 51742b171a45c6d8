// Exposes the module's internals to the tests; never shipped.

#include <nan.h>

#include "../../src/cpp/addon.h"
#include "../../src/cpp/conversions.h"
#include "../../src/cpp/js_callback.h"
#include "../../src/cpp/js_runtime.h"
#include "../../src/cpp/linux/dbus_screenshot.h"
#include "../../src/cpp/linux/screenshot_permission.h"
#include "../../src/cpp/linux/tools_x11_linux.h"
#include "../../src/cpp/linux/upgrade_script.h"
#include "../../src/cpp/linux/x_error_guard.h"
#include "../../src/cpp/logging.h"

using kiv::CallInfo;

// This add-on's own agent, for the record and the guard. Only activeTask() sets it up.
static kiv::DesktopSessionAgent& agent = *new kiv::DesktopSessionAgent;
kiv::DesktopSessionAgent& kiv::Agent() { return agent; }

namespace {

std::weak_ptr<kiv::DbusScreenshot> selecting;

// selectArea(function): starts a selection as an accepted request does. Only the request owns the
// backend. A backend that cannot select does not take the function.
void SelectArea(const CallInfo& info) {
  const kiv::EntryScope entry;
  const auto chosen = kiv::DbusScreenshot::Create();
  if (!chosen) return;
  selecting = chosen;
  auto context = kiv::FunctionArgument(info, 0);
  if (!chosen->SnapSelectionSupported()) {
    return chosen->SnapSelection(&agent.data_, context.get());
  }
  agent.TakeSnapGuard();
  chosen->SnapSelection(&agent.data_, context.release());
}

void BackendAlive(const CallInfo& info) { info.GetReturnValue().Set(!selecting.expired()); }
void GuardIsFree(const CallInfo& info) { info.GetReturnValue().Set(agent.SnapGuardIsFree()); }
void SetLogger(const CallInfo& info) { kiv::LogMessage::Setup(kiv::FunctionArgument(info, 0)); }

// script(package, log): the Debian script, filled in, for process 1.
void Script(const CallInfo& info) {
  const kiv::UpgradeRun run = {1, *Nan::Utf8String(info[0]), *Nan::Utf8String(info[1]), false};
  info.GetReturnValue().Set(kiv::ToJsString(kiv::UpgradeScript(kiv::PackageFamily::kDebian, run)));
}

// activeTask(): only the first step of a snapshot.
void ActiveTask(const CallInfo& info) {
  if (!agent.data_.display()) agent.Setup();
  const kiv::ActiveTask task = kiv::ReadActiveTask(agent.data_.display(), agent.data_);
  info.GetReturnValue().Set(kiv::ToJsString(task.title + task.process));
}

void IdOfUserUnit(const CallInfo& info) {
  info.GetReturnValue().Set(kiv::ToJsString(kiv::IdOfUserUnit(*Nan::Utf8String(info[0]))));
}

Display* OwnDisplay() {
  static Display* const display = XOpenDisplay(nullptr);
  return display;
}

// xProperty(window, name): the items, each with the bytes of its format.
void Property(const CallInfo& info) {
  const auto window = static_cast<Window>(Nan::To<int64_t>(info[0]).FromJust());
  auto items = tools_x11::get_property(OwnDisplay(), window, *Nan::Utf8String(info[1]));
  auto* bytes = reinterpret_cast<char*>(items.data());
  info.GetReturnValue().Set(Nan::CopyBuffer(bytes, items.size()).ToLocalChecked());
}

void TopLevel(const CallInfo& info) {
  kiv::DesktopSessionData data;
  const kiv::XErrorGuard guard(OwnDisplay());
  const Window window = tools_x11::find_top_level_active_window(OwnDisplay(), &data);
  const auto result = Nan::New<v8::Object>();
  kiv::SetKey(result, "window", static_cast<double>(window));
  kiv::SetKey(result, "title", data.snap.activeWindowTitle);
  kiv::SetKey(result, "process", data.snap.activeProcessName);
  info.GetReturnValue().Set(result);
}

// Lets the loop end.
void UnrefHandles(const CallInfo& /*info*/) {
  uv_walk(
      uv_default_loop(), [](uv_handle_t* one, void*) { uv_unref(one); }, nullptr);
}

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  kiv::JsRuntime::Get().Start([] {
    agent.OnRuntimeEnd();
    kiv::LogMessage::Setup(nullptr);
  });
  Nan::SetMethod(exports, "selectArea", SelectArea);
  Nan::SetMethod(exports, "selectionBackendAlive", BackendAlive);
  Nan::SetMethod(exports, "guardIsFree", GuardIsFree);
  Nan::SetMethod(exports, "setupLogger", SetLogger);
  Nan::SetMethod(exports, "script", Script);
  Nan::SetMethod(exports, "activeTask", ActiveTask);
  Nan::SetMethod(exports, "idOfUserUnit", IdOfUserUnit);
  Nan::SetMethod(exports, "xProperty", Property);
  Nan::SetMethod(exports, "xTopLevel", TopLevel);
  Nan::SetMethod(exports, "unrefHandles", UnrefHandles);
}

}  // namespace

NODE_MODULE(kiv_internals, Setup)
