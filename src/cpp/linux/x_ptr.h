#ifndef SRC_CPP_LINUX_X_PTR_H_
#define SRC_CPP_LINUX_X_PTR_H_

#include <X11/Xlib.h>

#include <memory>

namespace kiv {

struct XFreeMemory {
  void operator()(void* memory) const { XFree(memory); }
};
// Owns memory that Xlib allocated.
template <typename T>
using XPtr = std::unique_ptr<T, XFreeMemory>;
static_assert(sizeof(XPtr<unsigned char>) == sizeof(void*));

}  // namespace kiv

#endif  // SRC_CPP_LINUX_X_PTR_H_
