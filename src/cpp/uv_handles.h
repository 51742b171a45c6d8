#ifndef SRC_CPP_UV_HANDLES_H_
#define SRC_CPP_UV_HANDLES_H_

#include <uv.h>

namespace kiv {

// Owners of handles on the default loop. libuv keeps using a handle's memory until its close
// callback has run, so it lives on the heap and only that callback frees it.

class UvPoll {
 public:
  UvPoll() = default;
  ~UvPoll() = default;
  UvPoll(const UvPoll&) = delete;
  UvPoll& operator=(const UvPoll&) = delete;

  // Watches `fd` for readability; `data` becomes the handle's data. False when libuv refuses.
  bool Start(int fd, uv_poll_cb callback, void* data);
  // Stops watching. `fd` may be closed right after. Does nothing when not started.
  void Close();

 private:
  uv_poll_t* handle_ = nullptr;
};

// Runs a callback in the next turn of the loop; does not keep the loop alive.
class UvWake {
 public:
  UvWake() = default;
  ~UvWake() = default;
  UvWake(const UvWake&) = delete;
  UvWake& operator=(const UvWake&) = delete;

  bool Start(uv_async_cb callback, void* data);
  void Send();
  void Close();

 private:
  uv_async_t* handle_ = nullptr;
};

}  // namespace kiv

#endif  // SRC_CPP_UV_HANDLES_H_
