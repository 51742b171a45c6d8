#ifndef SRC_CPP_LINUX_IDLE_TIME_H_
#define SRC_CPP_LINUX_IDLE_TIME_H_

#include <cstdint>

struct _XDisplay;

namespace kiv {

// Seconds, where they are known.
struct OptionalSeconds {
  bool set = false;
  uint32_t value = 0;
};
constexpr OptionalSeconds kUnknownSeconds = {false, 0xFFFFFFFF};

// How long the user has been idle: as the X screen saver knows it, waiting for its reply, or as
// GNOME Mutter does. What Mutter does not answer is logged.
OptionalSeconds IdleTimeOfX(_XDisplay* display);
OptionalSeconds IdleTimeOfMutter();

}  // namespace kiv

#endif  // SRC_CPP_LINUX_IDLE_TIME_H_
