#ifndef SRC_CPP_LINUX_INPUT_ACTIVITY_H_
#define SRC_CPP_LINUX_INPUT_ACTIVITY_H_

#include <cstdint>
#include <optional>

struct _XDisplay;

namespace kiv {

// What tells one raw press from the next; all zero for another raw event.
struct RawPress {
  int type = 0;    // XI_RawKeyPress or XI_RawButtonPress
  int detail = 0;  // keycode or button
  int source = 0;
  unsigned long time = 0;
  bool operator==(const RawPress&) const = default;
};

struct InputCounters {
  uint64_t keyboard_activity = 0;  // raw key presses since load
  uint64_t mouse_activity = 0;     // raw button presses since load, wheel bursts counted once
  bool wheel_seen = false;
  uint64_t last_wheel_time = 0;  // nanoseconds of uv_hrtime
  int screens = 1;               // each sends every event
  RawPress last_press;           // of several screens
};

// The major opcode of the X Input extension; empty without it.
std::optional<int> FindXInput(_XDisplay* display);
// Selects raw key and button events on the root window of every screen; how many there are.
int SelectRawInput(_XDisplay* display);

// Takes the next event off the queue, which must not be empty; empty for what is no raw event.
// `opcode` is the X Input extension's.
std::optional<RawPress> TakeRawPress(_XDisplay* display, int opcode);

// Whether `press` is one to count. A server sends a raw event once for every root window on which
// it is selected, one copy right after the other; only the first counts. Two presses of one key
// have its release between them.
bool IsNewPress(const RawPress& press, InputCounters* counters);
bool IsEscape(const RawPress& press);
// `now` in nanoseconds of uv_hrtime.
void CountPress(const RawPress& press, uint64_t now, InputCounters* counters);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_INPUT_ACTIVITY_H_
