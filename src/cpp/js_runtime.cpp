#include "js_runtime.h"

namespace kiv {

JsRuntime& JsRuntime::Get() {
  static auto* const runtime = new JsRuntime();
  return *runtime;
}

bool JsRuntime::Start(void (*release)()) {
  if (context_) return context() == Nan::GetCurrentContext();
  isolate_ = v8::Isolate::GetCurrent();
  context_ = new Nan::Persistent<v8::Context>(Nan::GetCurrentContext());
  release_ = release;
  node::AddEnvironmentCleanupHook(isolate_, OnEnd, this);
  return true;
}

void JsRuntime::OnEnd(void* self) {
  auto* runtime = static_cast<JsRuntime*>(self);
  runtime->release_();
  runtime->context_->Reset();
  delete runtime->context_;
  runtime->context_ = nullptr;
  runtime->isolate_ = nullptr;
}

bool JsRuntime::IsAlive() const { return context_ && v8::Isolate::GetCurrent() == isolate_; }

}  // namespace kiv
