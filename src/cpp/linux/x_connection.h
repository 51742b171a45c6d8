#ifndef SRC_CPP_LINUX_X_CONNECTION_H_
#define SRC_CPP_LINUX_X_CONNECTION_H_

#include "../uv_ptr.h"

struct _XDisplay;

namespace kiv {

// A connection to the X server of one's own, read from the default loop. Where libX11 can report
// that the server is gone (1.7 and later) instead of exiting, requests fail from then on.
class XConnection {
 public:
  XConnection() = default;
  ~XConnection() { Close(); }
  XConnection(const XConnection&) = delete;
  XConnection& operator=(const XConnection&) = delete;

  // Who takes the events, and hears once when the server is gone. Called from the loop; both may
  // close the connection.
  struct Client {
    void (*take_event)(void* self);  // takes one off Xlib's queue, which is not empty
    void (*on_lost)(void* self);
    void* self;
  };

  // Connects to the default display. The connection, or null.
  _XDisplay* Open();
  // Starts reading an open connection; false when libuv refuses.
  bool StartReading(const Client& client);
  // Closes it, lost or not. May be called again.
  void Close();

  // To be called after every round trip: what a round trip has read into Xlib's queue leaves the
  // descriptor silent, so the loop is told to handle it in its next iteration.
  void AfterRoundTrip();

  // The connection while it is open and the server is there; else null.
  _XDisplay* display() const { return lost_ ? nullptr : display_; }

 private:
  static void PollCallback(uv_poll_t* handle, int status, int events);
  static void OnWake(uv_async_t* handle);
  void Drain();
  void StopReading();

  _XDisplay* display_ = nullptr;
  bool lost_ = false;
  Client client_ = {};
  UvPtr<uv_poll_t> poll_;
  UvPtr<uv_async_t> wake_;  // does not keep the loop alive
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_X_CONNECTION_H_
