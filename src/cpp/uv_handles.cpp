#include "uv_handles.h"

#include <memory>

namespace kiv {

namespace {

template <typename Handle>
void CloseAndFree(Handle** handle) {
  if (!*handle) return;
  uv_close(reinterpret_cast<uv_handle_t*>(*handle),
           [](uv_handle_t* closed) { delete reinterpret_cast<Handle*>(closed); });
  *handle = nullptr;
}

}  // namespace

bool UvPoll::Start(int fd, uv_poll_cb callback, void* data) {
  Close();
  auto handle = std::make_unique<uv_poll_t>();
  if (uv_poll_init(uv_default_loop(), handle.get(), fd) != 0) return false;
  handle_ = handle.release();
  handle_->data = data;
  if (uv_poll_start(handle_, UV_READABLE, callback) == 0) return true;
  Close();
  return false;
}

void UvPoll::Close() { CloseAndFree(&handle_); }

bool UvWake::Start(uv_async_cb callback, void* data) {
  Close();
  auto handle = std::make_unique<uv_async_t>();
  if (uv_async_init(uv_default_loop(), handle.get(), callback) != 0) return false;
  handle_ = handle.release();
  handle_->data = data;
  uv_unref(reinterpret_cast<uv_handle_t*>(handle_));
  return true;
}

void UvWake::Send() {
  if (handle_) uv_async_send(handle_);
}

void UvWake::Close() { CloseAndFree(&handle_); }

}  // namespace kiv
