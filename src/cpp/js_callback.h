#ifndef SRC_CPP_JS_CALLBACK_H_
#define SRC_CPP_JS_CALLBACK_H_

#include <nan.h>

#include <optional>

namespace kiv {

// The only way into JavaScript, and the handling of exceptions that callbacks throw.

// Opens a handle scope and a context for a call that may start outside of JavaScript. While it is
// not usable(), because the runtime ends or terminates a script, create and call nothing.
class JsScope {
 public:
  JsScope();
  ~JsScope();
  JsScope(const JsScope&) = delete;
  JsScope& operator=(const JsScope&) = delete;

  bool usable() const { return usable_; }

  // Calls with the global object, or `receiver`, as receiver. The call may replace or delete the
  // callback. An exception reaches the host exactly once: inside an exported function when that
  // function returns, otherwise as an uncaught exception at once. The call may have changed
  // anything; even teardown may have run.
  void Call(const Nan::Callback& callback, int argc, v8::Local<v8::Value>* argv);
  void Call(v8::Local<v8::Function> function, v8::Local<v8::Object> receiver, int argc,
            v8::Local<v8::Value>* argv);
  // Reads a property, which may run a getter. Returns undefined when the getter throws.
  v8::Local<v8::Value> Get(v8::Local<v8::Object> object, const char* key);

 private:
  // Propagates the exception that `raised` caught.
  static void Propagate(Nan::TryCatch* raised);

  std::optional<Nan::HandleScope> handles_;
  v8::Local<v8::Context> entered_;
  bool usable_ = false;
};

// First object of every exported function. It holds exceptions that conversions or callbacks raise
// until the function has finished, then throws the first one.
class EntryScope {
 public:
  EntryScope();
  ~EntryScope();
  EntryScope(const EntryScope&) = delete;
  EntryScope& operator=(const EntryScope&) = delete;

  // Keeps the first exception that a callback raised.
  void Hold(v8::Local<v8::Value> exception);

  // The innermost running exported function. Null when none runs and inside an event handler.
  static EntryScope* Current() { return current_; }

 private:
  friend class EventScope;

  static EntryScope* current_;
  Nan::HandleScope handles_;
  Nan::TryCatch pending_;
  Nan::Global<v8::Value> held_;
  EntryScope* outer_;
};

}  // namespace kiv

#endif  // SRC_CPP_JS_CALLBACK_H_
