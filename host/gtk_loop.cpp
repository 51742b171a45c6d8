// Weaves the default GLib main context into libuv's loop, as the real host does, so that GTK, GDBus
// and GLib time-outs work in a plain Node process.

#include <gtk/gtk.h>
#include <nan.h>
#include <sys/epoll.h>
#include <unistd.h>
#include <uv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

namespace {

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor(FileDescriptor&&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  FileDescriptor& operator=(FileDescriptor&&) = delete;

  int get() const { return fd_; }

 private:
  int fd_;
};

// libuv refers to a handle until its close callback has run, so only that callback frees it.
struct UvCloser {
  template <typename Handle>
  void operator()(Handle* handle) const {
    uv_close(reinterpret_cast<uv_handle_t*>(handle),
             [](uv_handle_t* closed) { delete reinterpret_cast<Handle*>(closed); });
  }
};

template <typename Handle>
using UvPtr = std::unique_ptr<Handle, UvCloser>;

// Empty when libuv refuses. The handle never keeps the process alive.
template <typename Handle, typename... Arguments>
UvPtr<Handle> MakeHandle(int (*init)(uv_loop_t*, Handle*, Arguments...), void* data,
                         Arguments... arguments) {
  auto handle = std::make_unique<Handle>();
  if (init(Nan::GetCurrentEventLoop(), handle.get(), arguments...) != 0) return nullptr;
  handle->data = data;
  uv_unref(reinterpret_cast<uv_handle_t*>(handle.get()));
  return UvPtr<Handle>(handle.release());
}

struct ContextReleaser {
  void operator()(GMainContext* context) const { g_main_context_release(context); }
};
using OwnedContext = std::unique_ptr<GMainContext, ContextReleaser>;

// The context stays owned for as long as it is woven in: only then does GLib signal the wake-up
// descriptor for a source that another thread attaches. Empty when another thread owns it.
OwnedContext OwnDefaultContext() {
  GMainContext* context = g_main_context_default();
  return OwnedContext(g_main_context_acquire(context) ? context : nullptr);
}

// The descriptors that GLib wants polled, mirrored into one epoll descriptor. libuv accepts one
// watcher per descriptor; this way it stays free for whoever else wants to watch it.
class DescriptorMirror {
 public:
  int get() const { return epoll_.get(); }

  // False when one of the descriptors cannot be waited for because it is always ready.
  bool Update(const std::vector<GPollFD>& wanted) {
    std::vector<epoll_event> next;
    for (const GPollFD& entry : wanted) {
      auto known = Find(next, entry.fd);
      if (known == next.end()) {
        // One shot, and armed anew every turn: an entry whose number was closed while a duplicate
        // lives on can no longer be removed, but it fires once only.
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
      // The number may belong to another file than last turn, so epoll is asked, not our record.
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

  FileDescriptor epoll_{epoll_create1(EPOLL_CLOEXEC)};
  std::vector<epoll_event> watched_;
};

class GlibInUv {
 public:
  // Null on success, else what went wrong.
  const char* Start() {
    if (!context_) return "The default GLib main context belongs to another thread";
    if (mirror_.get() < 0) return "No epoll descriptor";
    prepare_ = MakeHandle(uv_prepare_init, this);
    check_ = MakeHandle(uv_check_init, this);
    timer_ = MakeHandle(uv_timer_init, this);
    poll_ = MakeHandle(uv_poll_init, this, mirror_.get());
    if (!prepare_ || !check_ || !timer_ || !poll_) return "No libuv handle";

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

  // A whole iteration rather than the second half of the one begun in BeforePoll(): callbacks run
  // by libuv in between may have iterated the context themselves. Static, because a handler may
  // stop the loop and with it destroy the object.
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
  // Below mirror_, so that it is closed before the descriptor it watches.
  UvPtr<uv_poll_t> poll_;
};

// Trivially destructible on purpose: at exit() the runtime is gone before statics are destroyed.
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
