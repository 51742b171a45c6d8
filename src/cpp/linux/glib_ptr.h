#ifndef SRC_CPP_LINUX_GLIB_PTR_H_
#define SRC_CPP_LINUX_GLIB_PTR_H_

#include <gio/gio.h>

#include <memory>

#if !GLIB_CHECK_VERSION(2, 46, 0)
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

// Each owns one GLib reference or allocation.
template <typename T>
using GObjectPtr = std::unique_ptr<T, FreeWith<g_object_unref>>;
using GErrorPtr = std::unique_ptr<GError, FreeWith<g_error_free>>;
using GVariantPtr = std::unique_ptr<GVariant, FreeWith<g_variant_unref>>;
using GCharPtr = std::unique_ptr<gchar, FreeWith<g_free>>;

static_assert(sizeof(GObjectPtr<GObject>) == sizeof(void*));

// Takes ownership of a reference that a call returned.
template <typename T>
GObjectPtr<T> AdoptGObject(T* object) {
  return GObjectPtr<T>(object);
}

// Adds a reference to an object that another owner holds.
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

}  // namespace kiv

#endif  // SRC_CPP_LINUX_GLIB_PTR_H_
