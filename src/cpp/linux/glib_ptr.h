#ifndef SRC_CPP_LINUX_GLIB_PTR_H_
#define SRC_CPP_LINUX_GLIB_PTR_H_

#include <gio/gio.h>

#include <memory>
#include <utility>
#include <vector>

#if __cplusplus <= 201703L
#error "kiv_native needs a compiler in C++20 mode"
#elif !GLIB_CHECK_VERSION(2, 46, 0)
#error "kiv_native needs GLib 2.46 or later"
#endif

namespace kiv {

template <auto Free>
struct FreeWith {
  template <typename T>
  void operator()(T* pointer) const {
    Free(pointer);
  }
};

// Owners of one reference or allocation of GLib's.
template <typename T>
using GObjectPtr = std::unique_ptr<T, FreeWith<g_object_unref>>;
using GErrorPtr = std::unique_ptr<GError, FreeWith<g_error_free>>;
using GVariantPtr = std::unique_ptr<GVariant, FreeWith<g_variant_unref>>;
using GCharPtr = std::unique_ptr<gchar, FreeWith<g_free>>;

static_assert(sizeof(GObjectPtr<GObject>) == sizeof(void*));

// Takes over the reference that a call returned.
template <typename T>
GObjectPtr<T> AdoptGObject(T* object) {
  return GObjectPtr<T>(object);
}

// Adds a reference to an object that somebody else owns.
template <typename T>
GObjectPtr<T> RetainGObject(T* object) {
  return GObjectPtr<T>(object ? static_cast<T*>(g_object_ref(object)) : nullptr);
}

// Collects the GError of a call: f(..., CollectError(&error)).
class CollectError {
 public:
  explicit CollectError(GErrorPtr* owner) : owner_(owner) {}
  ~CollectError() { owner_->reset(raw_); }
  CollectError(const CollectError&) = delete;
  CollectError& operator=(const CollectError&) = delete;
  operator GError**() { return &raw_; }  // NOLINT(google-explicit-constructor)

 private:
  GErrorPtr* owner_;
  GError* raw_ = nullptr;
};

// Signal handlers that are disconnected at the end; each keeps its object until then.
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
      // The end of a widget disconnects all of its handlers.
      if (g_signal_handler_is_connected(object.get(), id)) {
        g_signal_handler_disconnect(object.get(), id);
      }
    }
  }

 private:
  std::vector<std::pair<GObjectPtr<GObject>, gulong>> connections_;
};

// A source of the default main context that runs once, when nothing else is to be done; cancelled
// at the end.
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

#endif  // SRC_CPP_LINUX_GLIB_PTR_H_
