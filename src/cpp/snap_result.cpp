#include "snap_result.h"

#include "conversions.h"

namespace kiv {

namespace {

// The runtime owns the block once Buffer::New is called, even if that fails.
v8::Local<v8::Value> TakeBuffer(ScreenSnap::image_data* block) {
  v8::Local<v8::Object> buffer;
  const size_t size = std::exchange(block->size, 0);
  char* bytes = reinterpret_cast<char*>(block->buffer.release());
  const bool made = bytes ? node::Buffer::New(v8::Isolate::GetCurrent(), bytes, size,
                                              ScreenSnap::image_data::free_callback, nullptr)
                                .ToLocal(&buffer)
                          : Nan::NewBuffer(0).ToLocal(&buffer);
  if (!made) return Nan::Undefined();
  return buffer;
}

}  // namespace

void SetPictures(v8::Local<v8::Object> result, ScreenSnap* snap) {
  SetKey(result, "data", TakeBuffer(&snap->image));
  SetKey(result, "dataThumbnail", TakeBuffer(&snap->thumbnail));
}

void SetDescription(v8::Local<v8::Object> result, const ScreenSnap& snap) {
  SetKey(result, "width", snap.width);
  SetKey(result, "height", snap.height);
  SetKey(result, "activeWindowTitle", snap.activeWindowTitle);
  SetKey(result, "activeProcessName", snap.activeProcessName);
  SetKey(result, "filename", snap.filename);
}

}  // namespace kiv
