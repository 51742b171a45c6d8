#ifndef SRC_CPP_LINUX_X_ERROR_GUARD_H_
#define SRC_CPP_LINUX_X_ERROR_GUARD_H_

#include <X11/Xlib.h>

namespace kiv {

// Keeps protocol errors of the requests made while it lives from the process's error handler, which
// is free to exit. Errors of other connections and of earlier requests go on to that handler. Holds
// a process-wide setting: no GDK, GTK or JavaScript while it lives.
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
