#ifndef SRC_CPP_LINUX_GDK_ERROR_TRAP_H_
#define SRC_CPP_LINUX_GDK_ERROR_TRAP_H_

#include <gdk/gdk.h>

namespace kiv {

// Windows and monitors may disappear between two GDK requests. Without a trap GDK exits on the
// resulting error.
class GdkErrorTrap {
 public:
  GdkErrorTrap() { gdk_error_trap_push(); }
  ~GdkErrorTrap() { gdk_error_trap_pop_ignored(); }
  GdkErrorTrap(const GdkErrorTrap&) = delete;
  GdkErrorTrap& operator=(const GdkErrorTrap&) = delete;
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_GDK_ERROR_TRAP_H_
