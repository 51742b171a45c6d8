// The package's second entry point: whether the person lets the application take screenshots.

#include <nan.h>

#include <memory>
#include <utility>

#include "../event_scope.h"
#include "../js_callback.h"
#include "../js_runtime.h"
#include "facts_export.h"
#include "permission_question.h"

namespace kiv {

namespace {

struct Asking {
  Nan::Callback callback;
  PermissionQuestion question;
};

// Never destroyed, since its libuv handles may not be closed after the loop.
std::unique_ptr<Asking>& CurrentAsking() {
  static auto* const asking = new std::unique_ptr<Asking>();
  return *asking;
}

void OnAnswered(const char* state) {
  const EventScope event_scope;
  const auto asking = std::exchange(CurrentAsking(), nullptr);
  JsScope scope;
  if (!scope.usable()) return;
  v8::Local<v8::Value> argument = Nan::New(state).ToLocalChecked();
  scope.Call(asking->callback, 1, &argument);
}

// state()
NAN_METHOD(State) {
  const EntryScope entry;
  static auto* const memory = new PortalMemory();
  const char* text = ReadPermissionState(SessionFacts(), memory).text;
  info.GetReturnValue().Set(Nan::New(text).ToLocalChecked());
}

// ask(function): calls it once, with a state; only one question at a time.
NAN_METHOD(Ask) {
  const EntryScope entry;
  CurrentAsking().reset(new Asking{Nan::Callback(info[0].As<v8::Function>()),
                                   {Nan::GetCurrentEventLoop(), OnAnswered}});
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

// Every context that loads the library calls it, a worker's included.
extern "C" NODE_MODULE_EXPORT void NODE_MODULE_INITIALIZER(v8::Local<v8::Object> exports,
                                                           v8::Local<v8::Value> /*module*/,
                                                           v8::Local<v8::Context> /*context*/) {
  kiv::Setup(exports);
}
