#ifndef SRC_CPP_JS_RUNTIME_H_
#define SRC_CPP_JS_RUNTIME_H_

#include <nan.h>

namespace kiv {

// The runtime that loaded the module: one at a time, on the main thread. Never destroyed, so
// objects that outlive the isolate can still call IsAlive().
class JsRuntime {
 public:
  static JsRuntime& Get();
  JsRuntime(const JsRuntime&) = delete;
  JsRuntime& operator=(const JsRuntime&) = delete;

  // Called by the register function. `release` runs while the isolate is still alive and must drop
  // every persistent handle. A second load in the same context does nothing and returns true. While
  // another context is alive, does nothing and returns false.
  bool Start(void (*release)());

  // False once the runtime is ending. Its handles must not be used then.
  bool IsAlive() const;

  // The module's context. Valid only while the runtime is alive.
  v8::Local<v8::Context> context() const { return Nan::New(*context_); }

 private:
  JsRuntime() = default;
  ~JsRuntime() = default;
  static void OnEnd(void* self);

  v8::Isolate* isolate_ = nullptr;
  Nan::Persistent<v8::Context>* context_ = nullptr;  // null before the start and after the end
  void (*release_)() = nullptr;
};

}  // namespace kiv

#endif  // SRC_CPP_JS_RUNTIME_H_
