#include "snap_completion.h"

#include <memory>

#include "addon.h"
#include "js_callback.h"
#include "log_request_ids.h"
#include "logging.h"
#include "snap_result.h"

namespace kiv {

namespace {

// False, and nothing done, when no JavaScript may run.
bool DeliverResult(int error_code, ScreenSnap* snap, const Nan::Callback* function) {
  JsScope scope;
  if (!scope.usable()) return false;
  const v8::Local<v8::Object> result = Nan::New<v8::Object>();
  SetDescription(result, *snap);
  SetPictures(result, snap);
  SetKey(result, "errorCode", error_code);
  v8::Local<v8::Value> argv[] = {result};
  if (function) scope.Call(*function, 1, argv);
  return true;
}

}  // namespace

void OnScreenSnapCompleted(int error_code, ScreenSnap* snap, void* context, bool release_guard) {
  std::unique_ptr<Nan::Callback> function(static_cast<Nan::Callback*>(context));
  if (!DeliverResult(error_code, snap, function.get())) {
    // The handle went with its isolate.
    if (!RuntimeIsAlive()) static_cast<void>(function.release());
    snap->image.Clear();
    snap->thumbnail.Clear();
  }
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
