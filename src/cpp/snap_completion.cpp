#include "snap_completion.h"

#include <memory>

#include "addon.h"
#include "js_callback.h"
#include "log_request_ids.h"
#include "logging.h"
#include "snap_result.h"

namespace kiv {

namespace {

void DeliverResult(int error_code, ScreenSnap* snap, const Nan::Callback* function) {
  JsScope scope;
  if (!scope.usable()) return;
  const v8::Local<v8::Object> result = Nan::New<v8::Object>();
  SetDescription(result, *snap);
  SetPictures(result, snap);
  SetNumber(result, "errorCode", error_code);
  v8::Local<v8::Value> argv[] = {result};
  if (function) scope.Call(*function, 1, argv);
}

}  // namespace

void OnScreenSnapCompleted(int error_code, ScreenSnap* snap, void* context, bool release_guard) {
  {
    const std::unique_ptr<Nan::Callback> function(static_cast<Nan::Callback*>(context));
    DeliverResult(error_code, snap, function.get());
  }
  snap->image.Clear();
  snap->thumbnail.Clear();
  if (release_guard) Agent().ReleaseSnapGuard();
  LogMessage(LogMessage::debug).stream() << kLoggingRequestId_OnScreenSnapCompleted << ":"
                                         << error_code << ":" << kLoggingRequestId_End;
}

}  // namespace kiv
