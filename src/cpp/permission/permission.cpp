// The package's second entry point: whether the person lets the application take screenshots.

#include <nan.h>

#include <list>
#include <memory>
#include <utility>

#include "../event_scope.h"
#include "../js_callback.h"
#include "../js_runtime.h"
#include "../linux/session_bus.h"
#include "facts_export.h"
#include "permission_question.h"

namespace kiv {

namespace {

struct Asking {
  std::list<Nan::Callback> callbacks;
  PermissionQuestion question;
};

// Never destroyed, because its libuv handles cannot be closed after the loop.
std::unique_ptr<Asking>& CurrentAsking() {
  static auto* const asking = new std::unique_ptr<Asking>();
  return *asking;
}

const char* TextOf(PermissionState state) {
  switch (state) {
    case PermissionState::kGranted:
      return "granted";
    case PermissionState::kDenied:
      return "denied";
    case PermissionState::kUnknown:
      return "unknown";
    case PermissionState::kNotNeeded:
      return "not needed";
    default:
      return "unavailable";
  }
}

void Tell(const Nan::Callback& callback, PermissionState state) {
  JsScope scope;
  if (!scope.usable()) return;
  v8::Local<v8::Value> argument = Nan::New(TextOf(state)).ToLocalChecked();
  scope.Call(callback, 1, &argument);
}

void OnAnswered(PermissionState state) {
  const EventScope event_scope;
  const auto asking = std::exchange(CurrentAsking(), nullptr);
  for (const Nan::Callback& callback : asking->callbacks) Tell(callback, state);
}

// state()
NAN_METHOD(State) {
  const EntryScope entry;
  static AbsenceMemory absence;
  const SessionFacts session;
  GErrorPtr error;
  const auto bus = session.is_x11 ? nullptr : ConnectSessionBus(&error);
  const auto reading = ReadPermissionState(session, bus.get(), &absence);
  info.GetReturnValue().Set(Nan::New(TextOf(reading.state)).ToLocalChecked());
}

// ask(function): calls it once with a state. Calls during a question share it.
NAN_METHOD(Ask) {
  const EntryScope entry;
  const auto function = info[0].As<v8::Function>();
  // Without a lookup no GLib loop is needed.
  if (IsX11Session()) return Tell(Nan::Callback(function), PermissionState::kNotNeeded);
  auto& asking = CurrentAsking();
  if (!asking) asking.reset(new Asking{{}, {Nan::GetCurrentEventLoop(), OnAnswered}});
  asking->callbacks.emplace_back(function);
}

void Setup(v8::Local<v8::Object> exports) {
  if (Nan::GetCurrentEventLoop() != uv_default_loop()) {
    return Nan::ThrowError("kiv_native/permission works on the main thread only");
  }
  if (!JsRuntime::Get().Start([] { CurrentAsking().reset(); })) {
    return Nan::ThrowError("kiv_native/permission is loaded in another context already");
  }
  Nan::SetMethod(exports, "state", State);
  Nan::SetMethod(exports, "ask", Ask);
  Nan::Set(exports, Nan::New("facts").ToLocalChecked(), FactsExport());
}

}  // namespace

}  // namespace kiv

// Called by every context that loads the library, workers included.
extern "C" NODE_MODULE_EXPORT void NODE_MODULE_INITIALIZER(v8::Local<v8::Object> exports,
                                                           v8::Local<v8::Value> /*module*/,
                                                           v8::Local<v8::Context> /*context*/) {
  kiv::Setup(exports);
}
