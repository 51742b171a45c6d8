#include "js_callback.h"

#include <algorithm>
#include <utility>

#include "event_scope.h"

namespace kiv {

namespace {

constexpr char kAsyncResourceName[] = "nan:Callback:Call";

v8::Isolate* module_isolate = nullptr;
// Null before registration and after the runtime's end. Never destroyed: the handle is reset by the
// clean-up hook, and a static destructor would run after the isolate.
Nan::Persistent<v8::Context>* module_context = nullptr;
void (*release_module)() = nullptr;
EntryScope* current_entry = nullptr;

void OnRuntimeEnd(void* /*unused*/) {
  if (release_module) release_module();
  module_context->Reset();
  delete module_context;
  module_context = nullptr;
  module_isolate = nullptr;
}

}  // namespace

bool OnModuleRegistered(void (*release)()) {
  if (module_context) return Nan::New(*module_context) == Nan::GetCurrentContext();
  module_isolate = v8::Isolate::GetCurrent();
  module_context = new Nan::Persistent<v8::Context>(Nan::GetCurrentContext());
  release_module = release;
  node::AddEnvironmentCleanupHook(module_isolate, OnRuntimeEnd, nullptr);
  return true;
}

std::unique_ptr<Nan::Callback> MakeCallback(v8::Local<v8::Value> value) {
  if (!value->IsFunction()) return nullptr;
  return std::make_unique<Nan::Callback>(value.As<v8::Function>());
}

v8::Local<v8::String> ToJsString(const std::string& bytes) {
  const auto length =
      static_cast<int>(std::min<size_t>(bytes.size(), static_cast<size_t>(v8::String::kMaxLength)));
  return Nan::New<v8::String>(bytes.data(), length).FromMaybe(Nan::EmptyString());
}

void SetKey(v8::Local<v8::Object> object, const char* key, v8::Local<v8::Value> value) {
  Nan::Set(object, Nan::New(key).ToLocalChecked(), value);
}

void SetKey(v8::Local<v8::Object> object, const char* key, double value) {
  SetKey(object, key, v8::Local<v8::Value>(Nan::New(value)));
}

bool RuntimeIsAlive() { return module_context && v8::Isolate::GetCurrent() == module_isolate; }

JsScope::JsScope() {
  if (!RuntimeIsAlive() || module_isolate->IsExecutionTerminating()) return;
  handles_.emplace();
  if (!module_isolate->InContext()) {
    entered_ = Nan::New(*module_context);
    entered_->Enter();
  }
  usable_ = true;
}

JsScope::~JsScope() {
  if (!entered_.IsEmpty()) entered_->Exit();
}

void JsScope::Call(const Nan::Callback& callback, int argc, v8::Local<v8::Value>* argv) {
  if (callback.IsEmpty()) return;
  Call(callback.GetFunction(), Nan::GetCurrentContext()->Global(), argc, argv);
}

void JsScope::Call(v8::Local<v8::Function> function, v8::Local<v8::Object> receiver, int argc,
                   v8::Local<v8::Value>* argv) {
  if (!usable_ || module_isolate->IsExecutionTerminating()) return;
  Nan::TryCatch raised;
  // With no exported function beneath, the runtime is told at once, as for any event's callback.
  raised.SetVerbose(!EntryScope::Current());
  {
    Nan::AsyncResource resource(kAsyncResourceName);
    resource.runInAsyncScope(receiver, function, argc, argv);
  }
  Propagate(&raised);
}

v8::Local<v8::Value> JsScope::Get(v8::Local<v8::Object> object, const char* key) {
  Nan::TryCatch raised;
  raised.SetVerbose(!EntryScope::Current());
  const auto value = Nan::Get(object, Nan::New(key).ToLocalChecked());
  Propagate(&raised);
  return value.FromMaybe(v8::Local<v8::Value>(Nan::Undefined()));
}

void JsScope::Propagate(Nan::TryCatch* raised) {
  EntryScope* const entry = EntryScope::Current();
  // A termination stays pending by itself as long as there is a script beneath.
  if (entry && raised->HasCaught() && raised->CanContinue()) entry->Hold(raised->Exception());
}

EntryScope::EntryScope() : outer_(current_entry) { current_entry = this; }

EntryScope::~EntryScope() {
  current_entry = outer_;
  // Thrown like an exception, a termination could be caught by the script that it is to end.
  if (v8::Isolate::GetCurrent()->IsExecutionTerminating()) return;
  if (!held_.IsEmpty()) Nan::ThrowError(Nan::New(held_));
  if (pending_.HasCaught()) pending_.ReThrow();
}

void EntryScope::Hold(v8::Local<v8::Value> exception) {
  if (held_.IsEmpty()) held_.Reset(exception);
}

EntryScope* EntryScope::Current() { return current_entry; }

EventScope::EventScope() : beneath_(std::exchange(current_entry, nullptr)) {}

EventScope::~EventScope() { current_entry = beneath_; }

}  // namespace kiv
