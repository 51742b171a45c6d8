#ifndef SRC_CPP_JS_CALLBACK_H_
#define SRC_CPP_JS_CALLBACK_H_

#include <nan.h>

#include <optional>

namespace kiv {

// The one door into JavaScript, and what becomes of the exceptions raised behind it.

// Handles and a context for a call that may start outside of JavaScript. Nothing may be made or
// called when it is not usable(): the runtime is going away, or it is ending the script beneath.
class JsScope {
 public:
  JsScope();
  ~JsScope();
  JsScope(const JsScope&) = delete;
  JsScope& operator=(const JsScope&) = delete;

  bool usable() const { return usable_; }

  // Calls with the global object as receiver, or with `receiver`. The callback may be replaced or
  // deleted by the call itself. An exception reaches the host exactly once: inside an exported
  // function when that function returns, otherwise as an uncaught exception at once. After the call
  // anything may have happened, teardown included.
  void Call(const Nan::Callback& callback, int argc, v8::Local<v8::Value>* argv);
  void Call(v8::Local<v8::Function> function, v8::Local<v8::Object> receiver, int argc,
            v8::Local<v8::Value>* argv);
  // Reads a property, which may run a getter of the host's; undefined when that threw.
  v8::Local<v8::Value> Get(v8::Local<v8::Object> object, const char* key);

 private:
  // Passes on what `raised` has caught.
  static void Propagate(Nan::TryCatch* raised);

  std::optional<Nan::HandleScope> handles_;
  v8::Local<v8::Context> entered_;
  bool usable_ = false;
};

// First object of every exported function. An exception raised below it, by a conversion or by a
// callback of the host, waits until the function has finished its steps; the first one is thrown.
class EntryScope {
 public:
  EntryScope();
  ~EntryScope();
  EntryScope(const EntryScope&) = delete;
  EntryScope& operator=(const EntryScope&) = delete;

  // Keeps an exception that a callback raised; the runtime goes on without it.
  void Hold(v8::Local<v8::Value> exception);

  // The innermost exported function under way; null when there is none, and in an event's handler.
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
