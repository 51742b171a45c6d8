#include "js_callback.h"

#include <utility>

#include "event_scope.h"
#include "js_runtime.h"

namespace kiv {

namespace {

constexpr char kAsyncResourceName[] = "nan:Callback:Call";

// No JavaScript may be called while V8 terminates a script.
bool IsTerminating() { return v8::Isolate::GetCurrent()->IsExecutionTerminating(); }

}  // namespace

JsScope::JsScope() {
  if (!JsRuntime::Get().IsAlive() || IsTerminating()) return;
  handles_.emplace();
  if (!v8::Isolate::GetCurrent()->InContext()) {
    entered_ = JsRuntime::Get().context();
    entered_->Enter();
  }
  usable_ = true;
}

JsScope::~JsScope() {
  if (!entered_.IsEmpty()) entered_->Exit();
}

void JsScope::Call(const Nan::Callback& callback, int argc, v8::Local<v8::Value>* argv) {
  if (!usable_ || callback.IsEmpty()) return;
  Call(callback.GetFunction(), Nan::GetCurrentContext()->Global(), argc, argv);
}

void JsScope::Call(v8::Local<v8::Function> function, v8::Local<v8::Object> receiver, int argc,
                   v8::Local<v8::Value>* argv) {
  if (!usable_ || IsTerminating()) return;
  Nan::TryCatch raised;
  // With no exported function on the stack, report it at once, as for any event's callback.
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
  // A termination stays pending by itself while a script is on the stack.
  if (entry && raised->HasCaught() && raised->CanContinue()) entry->Hold(raised->Exception());
}

EntryScope* EntryScope::current_ = nullptr;

EntryScope::EntryScope() : outer_(current_) { current_ = this; }

EntryScope::~EntryScope() {
  current_ = outer_;
  // If it were thrown like an exception, the terminated script could catch it.
  if (IsTerminating()) return;
  if (!held_.IsEmpty()) Nan::ThrowError(Nan::New(held_));
  if (pending_.HasCaught()) pending_.ReThrow();
}

void EntryScope::Hold(v8::Local<v8::Value> exception) {
  if (held_.IsEmpty()) held_.Reset(exception);
}

EventScope::EventScope() : beneath_(std::exchange(EntryScope::current_, nullptr)) {}

EventScope::~EventScope() { EntryScope::current_ = beneath_; }

}  // namespace kiv
