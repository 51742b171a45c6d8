#include "js_callback.h"

#include <algorithm>

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

void OnModuleRegistered(void (*release)()) {
  module_isolate = v8::Isolate::GetCurrent();
  if (!module_context) module_context = new Nan::Persistent<v8::Context>();
  module_context->Reset(Nan::GetCurrentContext());
  release_module = release;
  node::AddEnvironmentCleanupHook(module_isolate, OnRuntimeEnd, nullptr);
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

JsScope::JsScope() {
  if (!module_context || v8::Isolate::GetCurrent() != module_isolate) return;
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
  if (!usable_) return;
  Nan::TryCatch raised;
  // With no exported function beneath, the runtime is told at once, as for any event's callback.
  raised.SetVerbose(!EntryScope::Current());
  {
    Nan::AsyncResource resource(kAsyncResourceName);
    resource.runInAsyncScope(receiver, function, argc, argv);
  }
  HandOn(&raised);
}

v8::Local<v8::Value> JsScope::Get(v8::Local<v8::Object> object, const char* key) {
  Nan::TryCatch raised;
  raised.SetVerbose(!EntryScope::Current());
  const auto value = Nan::Get(object, Nan::New(key).ToLocalChecked());
  HandOn(&raised);
  return value.FromMaybe(v8::Local<v8::Value>(Nan::Undefined()));
}

void JsScope::HandOn(Nan::TryCatch* raised) {
  if (!raised->HasCaught()) return;
  if (!raised->CanContinue()) {
    raised->ReThrow();
  } else if (EntryScope* entry = EntryScope::Current()) {
    entry->Hold(raised->Exception());
  }
}

EntryScope::EntryScope() : outer_(current_entry) { current_entry = this; }

EntryScope::~EntryScope() {
  current_entry = outer_;
  if (pending_.HasCaught() && !pending_.CanContinue()) {
    pending_.ReThrow();
    return;
  }
  if (!held_.IsEmpty()) Nan::ThrowError(Nan::New(held_));
  if (pending_.HasCaught()) pending_.ReThrow();
}

void EntryScope::Hold(v8::Local<v8::Value> exception) {
  if (held_.IsEmpty()) held_.Reset(exception);
}

EntryScope* EntryScope::Current() { return current_entry; }

}  // namespace kiv
