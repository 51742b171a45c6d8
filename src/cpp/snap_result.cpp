#include "snap_result.h"

#include "js_callback.h"

namespace kiv {

namespace {

// The runtime owns the block from the call on, also when the call fails.
v8::Local<v8::Value> TakeBuffer(ScreenSnap::image_data* block) {
  v8::Local<v8::Object> buffer;
  if (block->size == 0) {
    block->Clear();
    if (!Nan::NewBuffer(0).ToLocal(&buffer)) return Nan::Undefined();
    return buffer;
  }
  char* bytes = reinterpret_cast<char*>(block->buffer.release());
  const size_t size = block->size;
  block->size = 0;
  if (!node::Buffer::New(v8::Isolate::GetCurrent(), bytes, size,
                         ScreenSnap::image_data::free_callback, nullptr)
           .ToLocal(&buffer)) {
    return Nan::Undefined();
  }
  return buffer;
}

}  // namespace

void SetText(v8::Local<v8::Object> result, const char* key, const std::string& bytes) {
  SetKey(result, key, ToJsString(bytes));
}

void SetPictures(v8::Local<v8::Object> result, ScreenSnap* snap) {
  SetKey(result, "data", TakeBuffer(&snap->image));
  SetKey(result, "dataThumbnail", TakeBuffer(&snap->thumbnail));
}

void SetDescription(v8::Local<v8::Object> result, const ScreenSnap& snap) {
  SetKey(result, "width", snap.width);
  SetKey(result, "height", snap.height);
  SetText(result, "activeWindowTitle", snap.activeWindowTitle);
  SetText(result, "activeProcessName", snap.activeProcessName);
  SetText(result, "filename", snap.filename);
}

}  // namespace kiv
