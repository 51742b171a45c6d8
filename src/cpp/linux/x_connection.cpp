#include "x_connection.h"

#include <X11/Xlib.h>
#include <dlfcn.h>

#include <utility>

#include "../event_scope.h"

namespace kiv {

namespace {

// A flood of events blocks the loop for this long at most. The rest waits for the next iteration.
constexpr uint64_t kDrainBudget = 4'000'000;
constexpr unsigned kEventsPerClockReading = 64;

// The type XIOErrorExitHandler, for headers older than libX11 1.7.
using ExitHandler = void (*)(Display*, void*);
using SetExitHandler = void (*)(Display*, ExitHandler, void*);

SetExitHandler FindSetExitHandler() {
  return reinterpret_cast<SetExitHandler>(dlsym(RTLD_DEFAULT, "XSetIOErrorExitHandler"));
}

// The process-wide handler of X I/O errors. GDK's handler exits before libX11 calls a connection's
// exit handler, so ours runs first and handles one connection only.
class IoErrorHandler {
 public:
  void Watch(Display* display);
  void Unwatch(Display* display);

 private:
  static int OnError(Display* display);

  Display* watched_ = nullptr;
  XIOErrorHandler previous_ = nullptr;
  // If another handler was installed over ours, ours stays below it and is not installed twice.
  bool installed_ = false;
};

IoErrorHandler io_error_handler;

void IoErrorHandler::Watch(Display* display) {
  watched_ = display;
  if (installed_) return;
  previous_ = XSetIOErrorHandler(OnError);
  installed_ = true;
}

void IoErrorHandler::Unwatch(Display* display) {
  if (watched_ != display) return;
  watched_ = nullptr;
  const XIOErrorHandler current = XSetIOErrorHandler(previous_);
  installed_ = current != OnError;
  // Another handler was installed over ours. Keep it; ours passes all other errors on.
  if (installed_) XSetIOErrorHandler(current);
}

int IoErrorHandler::OnError(Display* display) {
  const IoErrorHandler& self = io_error_handler;
  if (display == self.watched_) return 0;
  return self.previous_ ? self.previous_(display) : 0;
}

// Events that Xlib has already queued need no system call.
bool HasEvents(Display* display) { return QLength(display) > 0 || XPending(display) > 0; }

}  // namespace

Display* XConnection::Open() {
  Close();
  display_ = XOpenDisplay(nullptr);
  if (!display_) return nullptr;
  if (const SetExitHandler set_exit_handler = FindSetExitHandler()) {
    const auto on_lost = [](Display*, void* lost) { *static_cast<bool*>(lost) = true; };
    set_exit_handler(display_, on_lost, &lost_);
    io_error_handler.Watch(display_);
  }
  return display_;
}

bool XConnection::StartReading(const Client& client) {
  client_ = client;
  wake_ = MakeUvHandle(uv_async_init, uv_default_loop(), this, uv_async_cb{OnWake});
  UvUnref(wake_);
  poll_ = MakeUvHandle(uv_poll_init, uv_default_loop(), this, ConnectionNumber(display_));
  if (!wake_ || !poll_ || uv_poll_start(poll_.get(), UV_READABLE, PollCallback) != 0) {
    StopReading();
    return false;
  }
  // Round trips so far may have queued events.
  AfterRoundTrip();
  return true;
}

void XConnection::StopReading() {
  poll_.reset();
  wake_.reset();
}

void XConnection::Close() {
  StopReading();
  Display* const display = std::exchange(display_, nullptr);
  if (!display) return;
  XCloseDisplay(display);
  io_error_handler.Unwatch(display);
  lost_ = false;
}

void XConnection::AfterRoundTrip() {
  if (!wake_ || !display_) return;
  if (lost_ || QLength(display_) > 0) uv_async_send(wake_.get());
}

void XConnection::PollCallback(uv_poll_t* handle, int status, int /*events*/) {
  const EventScope event_scope;
  auto* self = static_cast<XConnection*>(handle->data);
  if (status >= 0) return self->Drain();
  self->StopReading();
  // If the server is gone, let Xlib detect it as well.
  if (self->display()) XPending(self->display_);
  if (self->lost_) self->client_.on_lost(self->client_.self);
}

void XConnection::OnWake(uv_async_t* handle) {
  const EventScope event_scope;
  auto* self = static_cast<XConnection*>(handle->data);
  if (self->lost_) return self->client_.on_lost(self->client_.self);
  self->Drain();
}

void XConnection::Drain() {
  const uint64_t start = uv_hrtime();
  for (unsigned handled = 1; display() && HasEvents(display_); ++handled) {
    client_.take_event(client_.self);
    if (handled % kEventsPerClockReading == 0 && uv_hrtime() - start > kDrainBudget) break;
  }
  AfterRoundTrip();
}

}  // namespace kiv
