#include "snap_completion.h"

#include <memory>
#include <utility>

#include "addon.h"
#include "conversions.h"
#include "js_callback.h"
#include "js_runtime.h"
#include "log_request_ids.h"
#include "logging.h"
#include "snap_result.h"

namespace kiv {

namespace {

void DeliverResult(int error_code, ScreenSnap snap, const Nan::Callback& function) {
  JsScope scope;
  if (!scope.usable()) return;
  const v8::Local<v8::Object> result = Nan::New<v8::Object>();
  SetDescription(result, snap);
  SetPictures(result, &snap);
  SetKey(result, "errorCode", error_code);
  v8::Local<v8::Value> argv[] = {result};
  scope.Call(function, 1, argv);
}

}  // namespace

void OnScreenSnapCompleted(int error_code, ScreenSnap* snap, void* context, bool release_guard) {
  std::unique_ptr<Nan::Callback> function(static_cast<Nan::Callback*>(context));
  DeliverResult(error_code, TakeSnap(snap), *function);
  // When the isolate has ended, the handle no longer exists and must not be reset.
  if (!JsRuntime::Get().IsAlive()) static_cast<void>(function.release());
  function.reset();
  if (release_guard) Agent().ReleaseSnapGuard();
  LogMessage(LogMessage::debug).stream() << kLoggingRequestId_OnScreenSnapCompleted << ":"
                                         << error_code << ":" << kLoggingRequestId_End;
}

void DropScreenSnapRequest(void* context) {
  delete static_cast<Nan::Callback*>(context);
  Agent().ReleaseSnapGuard();
}

}  // namespace kiv
