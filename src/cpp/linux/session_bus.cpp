#include "session_bus.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

namespace kiv {

namespace {

// GLib's own limits begin once there is a connection; a daemon that stands still would hold the
// host for as long as it does.
constexpr std::chrono::seconds kPatience{5};

// Cancels what runs with it when it lives for too long.
class Deadline {
 public:
  Deadline() : cancellable_(AdoptGObject(g_cancellable_new())) {
    try {
      thread_ = std::thread(&Deadline::Watch, this);
    } catch (const std::system_error&) {
      // Without a thread there is no limit.
    }
  }

  ~Deadline() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      over_ = true;
    }
    ended_.notify_one();
    if (thread_.joinable()) thread_.join();
  }

  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  GCancellable* cancellable() const { return cancellable_.get(); }

 private:
  void Watch() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!ended_.wait_for(lock, kPatience, [this] { return over_; })) {
      g_cancellable_cancel(cancellable_.get());
    }
  }

  const GObjectPtr<GCancellable> cancellable_;
  std::mutex mutex_;
  std::condition_variable ended_;
  bool over_ = false;
  std::thread thread_;
};

// GLib ends the process when it finds no descriptor for a main context of its own, as every call
// needs one.
bool HasDescriptors() {
  constexpr int kEnough = 12;
  int taken[kEnough];
  int count = 0;
  while (count < kEnough && (taken[count] = eventfd(0, EFD_CLOEXEC)) >= 0) ++count;
  for (int i = 0; i < count; ++i) close(taken[i]);
  return count == kEnough;
}

}  // namespace

GObjectPtr<GDBusConnection> ConnectSessionBus(GErrorPtr* error) {
  if (!HasDescriptors()) {
    g_set_error_literal(CollectError(error), G_IO_ERROR, G_IO_ERROR_TOO_MANY_OPEN_FILES,
                        g_strerror(EMFILE));
    return nullptr;
  }
  const Deadline deadline;
  auto bus =
      AdoptGObject(g_bus_get_sync(G_BUS_TYPE_SESSION, deadline.cancellable(), CollectError(error)));
  if (bus && g_dbus_connection_is_closed(bus.get())) {
    const GCharPtr address(g_dbus_address_get_for_bus_sync(
        G_BUS_TYPE_SESSION, deadline.cancellable(), CollectError(error)));
    if (!address) return nullptr;
    const auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    bus = AdoptGObject(g_dbus_connection_new_for_address_sync(
        address.get(), flags, nullptr, deadline.cancellable(), CollectError(error)));
  }
  if (bus) g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
  return bus;
}

}  // namespace kiv
