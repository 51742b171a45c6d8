#ifndef SRC_CPP_SNAP_RESULT_H_
#define SRC_CPP_SNAP_RESULT_H_

#include <nan.h>

#include "screen_snap.h"

namespace kiv {

// Parts of a snapshot's JavaScript result. Each function sets its keys in the order listed.

// "data" and "dataThumbnail": buffers that own the snapshot's blocks. Nothing is copied.
void SetPictures(v8::Local<v8::Object> result, ScreenSnap* snap);
// "width", "height", "activeWindowTitle", "activeProcessName", "filename".
void SetDescription(v8::Local<v8::Object> result, const ScreenSnap& snap);

}  // namespace kiv

#endif  // SRC_CPP_SNAP_RESULT_H_
