#ifndef SRC_CPP_LINUX_GLIB_SCOPED_H_
#define SRC_CPP_LINUX_GLIB_SCOPED_H_

#include <utility>
#include <vector>

#include "glib_ptr.h"

namespace kiv {

// Disconnects its signal handlers on destruction and keeps their objects alive until then.
class ScopedSignals {
 public:
  ScopedSignals() = default;
  ~ScopedSignals() { Disconnect(); }
  ScopedSignals(const ScopedSignals&) = delete;
  ScopedSignals& operator=(const ScopedSignals&) = delete;

  void Connect(gpointer object, const char* signal, GCallback handler, gpointer data) {
    const gulong id = g_signal_connect_data(object, signal, handler, data, nullptr,
                                            static_cast<GConnectFlags>(0));
    connections_.emplace_back(RetainGObject(static_cast<GObject*>(object)), id);
  }
  void Disconnect() {
    for (const auto& [object, id] : std::exchange(connections_, {})) {
      // Destroying a widget disconnects all of its handlers.
      if (g_signal_handler_is_connected(object.get(), id)) {
        g_signal_handler_disconnect(object.get(), id);
      }
    }
  }

 private:
  std::vector<std::pair<GObjectPtr<GObject>, gulong>> connections_;
};

// A source of the default main context that runs once when the loop is idle. The destructor cancels
// it.
class IdleSource {
 public:
  IdleSource() = default;
  ~IdleSource() { Cancel(); }
  IdleSource(const IdleSource&) = delete;
  IdleSource& operator=(const IdleSource&) = delete;

  bool pending() const { return id_ != 0; }
  void Start(void (*run)(gpointer data), gpointer data) {
    Cancel();
    run_ = run;
    data_ = data;
    id_ = g_idle_add(Dispatch, this);
  }
  void Cancel() {
    if (pending()) g_source_remove(std::exchange(id_, 0));
  }

 private:
  static gboolean Dispatch(gpointer data) {
    auto* self = static_cast<IdleSource*>(data);
    self->id_ = 0;
    self->run_(self->data_);
    return G_SOURCE_REMOVE;
  }

  guint id_ = 0;
  void (*run_)(gpointer data) = nullptr;
  gpointer data_ = nullptr;
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_GLIB_SCOPED_H_
