#ifndef SRC_CPP_LINUX_IDLE_TIME_H_
#define SRC_CPP_LINUX_IDLE_TIME_H_

#include <cstdint>

struct _XDisplay;

namespace kiv {

// Seconds, if known.
struct OptionalSeconds {
  bool set = false;
  uint32_t value = 0;
};
constexpr OptionalSeconds kUnknownSeconds = {false, 0xFFFFFFFF};

// How long the user has been idle, according to the X screen saver (waits for its reply) or GNOME's
// Mutter (logs a failed call).
OptionalSeconds IdleTimeOfX(_XDisplay* display);
OptionalSeconds IdleTimeOfMutter();

}  // namespace kiv

#endif  // SRC_CPP_LINUX_IDLE_TIME_H_
