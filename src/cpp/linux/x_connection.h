#ifndef SRC_CPP_LINUX_X_CONNECTION_H_
#define SRC_CPP_LINUX_X_CONNECTION_H_

#include "../uv_ptr.h"

struct _XDisplay;

namespace kiv {

// A private connection to the X server, read from the default loop. If libX11 (1.7 and later) can
// report a lost server instead of exiting, requests fail after the loss.
class XConnection {
 public:
  XConnection() = default;
  ~XConnection() { Close(); }
  XConnection(const XConnection&) = delete;
  XConnection& operator=(const XConnection&) = delete;

  // Receives events and, once, the loss of the server. The loop calls both functions; each may
  // close the connection.
  struct Client {
    void (*take_event)(void* self);  // takes one event off Xlib's queue, which is not empty
    void (*on_lost)(void* self);
    void* self;
  };

  // Connects to the default display. Returns the connection, or null.
  _XDisplay* Open();
  // Starts reading the open connection. Returns false when libuv fails.
  bool StartReading(const Client& client);
  // Closes the connection, even a lost one. May be called repeatedly.
  void Close();

  // Call after every round trip: events that it moved into Xlib's queue do not make the descriptor
  // readable. Wakes the loop to handle them in its next iteration.
  void AfterRoundTrip();

  // Null when the connection is closed or the server is gone.
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
