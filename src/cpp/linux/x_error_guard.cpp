#include "x_error_guard.h"

namespace kiv {

namespace {

XErrorGuard* innermost_guard = nullptr;

}  // namespace

XErrorGuard::XErrorGuard(Display* display) : display_(display), outer_(innermost_guard) {
  SyncIfPending();
  first_request_ = NextRequest(display_);
  previous_ = XSetErrorHandler(OnError);
  innermost_guard = this;
}

XErrorGuard::~XErrorGuard() {
  SyncIfPending();
  innermost_guard = outer_;
  XSetErrorHandler(previous_);
}

// When all replies have been read, no error can be pending.
void XErrorGuard::SyncIfPending() {
  if (NextRequest(display_) != LastKnownRequestProcessed(display_) + 1) XSync(display_, False);
}

int XErrorGuard::OnError(Display* display, XErrorEvent* event) {
  XErrorHandler beyond = nullptr;
  for (XErrorGuard* guard = innermost_guard; guard; guard = guard->outer_) {
    if (display == guard->display_ && event->serial >= guard->first_request_) return 0;
    beyond = guard->previous_;
  }
  return beyond ? beyond(display, event) : 0;
}

}  // namespace kiv
