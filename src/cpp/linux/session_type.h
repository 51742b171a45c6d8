#ifndef SRC_CPP_LINUX_SESSION_TYPE_H_
#define SRC_CPP_LINUX_SESSION_TYPE_H_

#include <cstdlib>
#include <cstring>

namespace kiv {

// Whether the environment names an X11 session or no session type.
inline bool IsX11Session() {
  const char* type = std::getenv("XDG_SESSION_TYPE");
  return !type || std::strcmp(type, "x11") == 0;
}

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SESSION_TYPE_H_
