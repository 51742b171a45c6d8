#ifndef SRC_CPP_LINUX_X_ERROR_GUARD_H_
#define SRC_CPP_LINUX_X_ERROR_GUARD_H_

#include <X11/Xlib.h>

namespace kiv {

// While it exists, ignores protocol errors of requests on this connection, which the process's
// error handler could answer by exiting. Errors of other connections and earlier requests still go
// to that handler. The handler is process-wide: do not call GDK, GTK or JavaScript meanwhile.
class XErrorGuard {
 public:
  explicit XErrorGuard(Display* display);
  ~XErrorGuard();
  XErrorGuard(const XErrorGuard&) = delete;
  XErrorGuard& operator=(const XErrorGuard&) = delete;

 private:
  static int OnError(Display* display, XErrorEvent* event);
  void SyncIfPending();

  Display* display_;
  unsigned long first_request_;
  XErrorHandler previous_;
  XErrorGuard* outer_;
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_X_ERROR_GUARD_H_
