#ifndef SRC_CPP_UV_PTR_H_
#define SRC_CPP_UV_PTR_H_

#include <uv.h>

#include <memory>

namespace kiv {

// libuv uses a handle until its close callback has run, so only that callback may free it.
struct UvCloser {
  template <typename Handle>
  void operator()(Handle* handle) const {
    uv_close(reinterpret_cast<uv_handle_t*>(handle),
             [](uv_handle_t* closed) { delete reinterpret_cast<Handle*>(closed); });
  }
};

// Owns a handle and closes it. The descriptor that it polls may be closed right afterwards.
template <typename Handle>
using UvPtr = std::unique_ptr<Handle, UvCloser>;

// Creates a handle with `init`, one of libuv's uv_*_init functions, and stores `data` in it.
// Returns null when `init` fails.
template <typename Handle, typename... Arguments>
UvPtr<Handle> MakeUvHandle(int (*init)(uv_loop_t*, Handle*, Arguments...), uv_loop_t* loop,
                           void* data, Arguments... arguments) {
  auto handle = std::make_unique<Handle>();
  if (init(loop, handle.get(), arguments...) != 0) return nullptr;
  handle->data = data;
  return UvPtr<Handle>(handle.release());
}

// Lets the loop end although the handle is alive.
template <typename Handle>
void UvUnref(const UvPtr<Handle>& handle) {
  if (handle) uv_unref(reinterpret_cast<uv_handle_t*>(handle.get()));
}

}  // namespace kiv

#endif  // SRC_CPP_UV_PTR_H_
