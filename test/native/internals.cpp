// Reaches the module's internals for the tests; never shipped.

#include <nan.h>

#include "../../src/cpp/addon.h"
#include "../../src/cpp/conversions.h"
#include "../../src/cpp/js_callback.h"
#include "../../src/cpp/js_runtime.h"
#include "../../src/cpp/linux/dbus_screenshot.h"
#include "../../src/cpp/linux/tools_x11_linux.h"
#include "../../src/cpp/linux/upgrade_script.h"
#include "../../src/cpp/linux/x_error_guard.h"
#include "../../src/cpp/logging.h"

namespace {

using kiv::CallInfo;

// An agent of this add-on's own, for the record and the guard; set up by activeTask() alone.
kiv::DesktopSessionAgent agent;
std::weak_ptr<kiv::DbusScreenshot> selecting;
Display* display = nullptr;

void ReleaseRuntime() {
  agent.OnRuntimeEnd();
  kiv::LogMessage::Setup(nullptr);
}

void SelectArea(const CallInfo& info) {
  const kiv::EntryScope entry;
  const auto chosen = kiv::DbusScreenshot::Create();
  info.GetReturnValue().Set(chosen != nullptr);
  if (!chosen) return;
  selecting = chosen;
  auto context = kiv::FunctionArgument(info, 0);
  if (!chosen->SnapSelectionSupported()) {
    return chosen->SnapSelection(&agent.data_, context.get());
  }
  agent.TakeSnapGuard();
  chosen->SnapSelection(&agent.data_, context.release());
}

void Script(const CallInfo& info) {
  const kiv::UpgradeRun run = {1, *Nan::Utf8String(info[0]), *Nan::Utf8String(info[1]), false};
  info.GetReturnValue().Set(kiv::ToJsString(kiv::UpgradeScript(kiv::PackageFamily::kDebian, run)));
}

void ActiveTask(const CallInfo& info) {
  if (!agent.data_.display()) agent.Setup();
  const kiv::ActiveTask task = kiv::ReadActiveTask(agent.data_.display(), agent.data_);
  info.GetReturnValue().Set(kiv::ToJsString(task.title + task.process));
}

void Property(const CallInfo& info) {
  unsigned long count = 0;
  int format = 0;
  const auto window = static_cast<Window>(Nan::To<int64_t>(info[0]).FromJust());
  const auto items =
      tools_x11::get_property(display, window, *Nan::Utf8String(info[1]), &count, &format);
  const auto result = Nan::New<v8::Object>();
  const auto* bytes = reinterpret_cast<const char*>(items.data());
  kiv::SetKey(result, "items", Nan::CopyBuffer(bytes, items.size()).ToLocalChecked());
  kiv::SetKey(result, "count", static_cast<double>(count));
  kiv::SetKey(result, "format", format);
  info.GetReturnValue().Set(result);
}

void TopLevel(const CallInfo& info) {
  kiv::DesktopSessionData data;
  const kiv::XErrorGuard guard(display);
  const Window window = tools_x11::find_top_level_active_window(display, &data);
  const auto result = Nan::New<v8::Object>();
  kiv::SetKey(result, "window", static_cast<double>(window));
  kiv::SetKey(result, "title", data.snap.activeWindowTitle);
  kiv::SetKey(result, "process", data.snap.activeProcessName);
  info.GetReturnValue().Set(result);
}

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  kiv::JsRuntime::Get().Start(ReleaseRuntime);
  // selectArea(function): starts a selection as an accepted request does; nobody but the request
  // keeps its backend. False without a compositor. One that cannot select takes nothing over.
  Nan::SetMethod(exports, "selectArea", SelectArea);
  // Whether the last selection's backend still exists.
  Nan::SetMethod(exports, "selectionBackendAlive",
                 [](const auto& info) { info.GetReturnValue().Set(!selecting.expired()); });
  Nan::SetMethod(exports, "guardIsFree",
                 [](const auto& info) { info.GetReturnValue().Set(agent.SnapGuardIsFree()); });
  Nan::SetMethod(exports, "setupLogger",
                 [](const auto& info) { kiv::LogMessage::Setup(kiv::FunctionArgument(info, 0)); });
  // script(package, log): the one for Debian, filled, for process 1.
  Nan::SetMethod(exports, "script", Script);
  // activeTask(): what every snapshot begins with, alone.
  Nan::SetMethod(exports, "activeTask", ActiveTask);
  // The X11 helpers, on a connection of their own: xOpen(name) comes first.
  Nan::SetMethod(exports, "xOpen",
                 [](const auto& info) { display = XOpenDisplay(*Nan::Utf8String(info[0])); });
  Nan::SetMethod(exports, "xProperty", Property);
  Nan::SetMethod(exports, "xTopLevel", TopLevel);
  // Nothing keeps the loop alive any more.
  Nan::SetMethod(exports, "unrefHandles", [](const auto& /*info*/) {
    uv_walk(
        uv_default_loop(), [](uv_handle_t* one, void*) { uv_unref(one); }, nullptr);
  });
}

}  // namespace

namespace kiv {

DesktopSessionAgent& Agent() { return agent; }

}  // namespace kiv

NODE_MODULE(kiv_internals, Setup)
