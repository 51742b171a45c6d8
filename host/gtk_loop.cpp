// Runs the default GLib main context inside libuv's loop, as the real host does, so that GTK, GDBus
// and GLib time-outs work in a plain Node process.

#include <gtk/gtk.h>
#include <nan.h>
#include <sys/epoll.h>
#include <uv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include "../src/cpp/unique_fd.h"
#include "../src/cpp/uv_ptr.h"

namespace {

using kiv::MakeUvHandle;
using kiv::UniqueFd;
using kiv::UvPtr;
using kiv::UvUnref;

struct ContextReleaser {
  void operator()(GMainContext* context) const { g_main_context_release(context); }
};
using OwnedContext = std::unique_ptr<GMainContext, ContextReleaser>;

// Must own the context while its sources run here: only then does GLib signal the wake-up
// descriptor when another thread attaches a source. Null when another thread owns it.
OwnedContext OwnDefaultContext() {
  GMainContext* context = g_main_context_default();
  return OwnedContext(g_main_context_acquire(context) ? context : nullptr);
}

// Watches GLib's descriptors through one epoll descriptor. libuv accepts one watcher per
// descriptor, so this leaves GLib's descriptors free for other watchers.
class DescriptorMirror {
 public:
  int get() const { return epoll_.get(); }

  // Returns false when a descriptor is always ready, so that epoll cannot wait for it.
  bool Update(const std::vector<GPollFD>& wanted) {
    std::vector<epoll_event> next;
    for (const GPollFD& entry : wanted) {
      auto known = Find(next, entry.fd);
      if (known == next.end()) {
        // One-shot and rearmed in every iteration: if a descriptor is closed while a duplicate
        // exists, its entry cannot be removed, but it fires only once.
        known = next.insert(known, {.events = EPOLLONESHOT, .data = {.fd = entry.fd}});
      }
      known->events |= entry.events;
    }
    for (const epoll_event& old : watched_) {
      if (Find(next, old.data.fd) == next.end()) {
        epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, old.data.fd, nullptr);
      }
    }
    watched_ = std::move(next);

    bool can_wait = true;
    for (epoll_event& event : watched_) {
      // The number may refer to another file than before, so ask epoll instead of our record.
      if (epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, event.data.fd, &event) == 0) continue;
      if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, event.data.fd, &event) == 0) continue;
      if (errno == EPERM) can_wait = false;
    }
    return can_wait;
  }

  void Drain() {
    std::array<epoll_event, 32> events;
    epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), 0);
  }

 private:
  static std::vector<epoll_event>::iterator Find(std::vector<epoll_event>& events, int fd) {
    return std::find_if(events.begin(), events.end(),
                        [fd](const epoll_event& event) { return event.data.fd == fd; });
  }

  UniqueFd epoll_{epoll_create1(EPOLL_CLOEXEC)};
  std::vector<epoll_event> watched_;
};

class GlibInUv {
 public:
  // Returns null, or the error.
  const char* Start() {
    if (!context_) return "Another thread owns the default GLib main context";
    if (mirror_.get() < 0) return "Cannot create an epoll descriptor";
    uv_loop_t* const loop = Nan::GetCurrentEventLoop();
    prepare_ = MakeUvHandle(uv_prepare_init, loop, this);
    check_ = MakeUvHandle(uv_check_init, loop, this);
    timer_ = MakeUvHandle(uv_timer_init, loop, this);
    poll_ = MakeUvHandle(uv_poll_init, loop, this, mirror_.get());
    if (!prepare_ || !check_ || !timer_ || !poll_) return "Cannot create a libuv handle";
    // These handles do not keep the process alive.
    UvUnref(prepare_);
    UvUnref(check_);
    UvUnref(timer_);
    UvUnref(poll_);

    uv_prepare_start(prepare_.get(), [](uv_prepare_t* handle) {
      static_cast<GlibInUv*>(handle->data)->BeforePoll();
    });
    uv_check_start(check_.get(), [](uv_check_t* handle) {
      Dispatch(static_cast<GlibInUv*>(handle->data)->context_.get());
    });
    uv_poll_start(poll_.get(), UV_READABLE, [](uv_poll_t* handle, int, int) {
      static_cast<GlibInUv*>(handle->data)->mirror_.Drain();
    });
    return nullptr;
  }

 private:
  void BeforePoll() {
    gint priority = 0;
    g_main_context_prepare(context_.get(), &priority);
    gint timeout = -1;
    gint count = 0;
    while ((count = g_main_context_query(context_.get(), priority, &timeout, fds_.data(),
                                         static_cast<gint>(fds_.size()))) >
           static_cast<gint>(fds_.size())) {
      fds_.resize(count);
    }
    fds_.resize(count);

    if (!mirror_.Update(fds_)) timeout = 0;
    if (timeout < 0) {
      uv_timer_stop(timer_.get());
    } else {
      uv_timer_start(
          timer_.get(), [](uv_timer_t*) {}, timeout, 0);
    }
  }

  // Runs a whole iteration instead of finishing the one from BeforePoll(), because callbacks that
  // libuv ran in between may have iterated the context. Static, because a handler may stop the loop
  // and destroy the object.
  static void Dispatch(GMainContext* context) {
    Nan::HandleScope scope;
    g_main_context_iteration(context, FALSE);
  }

  OwnedContext context_ = OwnDefaultContext();
  DescriptorMirror mirror_;
  std::vector<GPollFD> fds_;
  UvPtr<uv_prepare_t> prepare_;
  UvPtr<uv_check_t> check_;
  UvPtr<uv_timer_t> timer_;
  // Declared after mirror_, so that it is closed before the descriptor that it watches.
  UvPtr<uv_poll_t> poll_;
};

// Trivially destructible: at exit() the runtime is gone before statics are destroyed.
GlibInUv* woven = nullptr;

void Unweave() { std::unique_ptr<GlibInUv>(std::exchange(woven, nullptr)).reset(); }

bool InitialiseGtk() {
  static bool locale_left_alone = false;
  if (!locale_left_alone) gtk_disable_setlocale();
  locale_left_alone = true;
  return gtk_init_check(nullptr, nullptr);
}

NAN_METHOD(Start) {
  if (!woven) {
    auto loop = std::make_unique<GlibInUv>();
    if (const char* problem = loop->Start()) return Nan::ThrowError(problem);
    woven = loop.release();
  }
  info.GetReturnValue().Set(InitialiseGtk());
}

NAN_METHOD(Stop) { Unweave(); }

void Init(v8::Local<v8::Object> exports, v8::Local<v8::Value>, void*) {
  Nan::Export(exports, "start", Start);
  Nan::Export(exports, "stop", Stop);
  node::AddEnvironmentCleanupHook(
      v8::Isolate::GetCurrent(), [](void*) { Unweave(); }, nullptr);
}

}  // namespace

NODE_MODULE(NODE_GYP_MODULE_NAME, Init)
