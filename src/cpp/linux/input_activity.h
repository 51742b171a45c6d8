#ifndef SRC_CPP_LINUX_INPUT_ACTIVITY_H_
#define SRC_CPP_LINUX_INPUT_ACTIVITY_H_

#include <cstdint>
#include <optional>

struct _XDisplay;

namespace kiv {

// Identifies a raw press. All zero for any other raw event.
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
  uint64_t last_wheel_time = 0;  // uv_hrtime() in nanoseconds
  int screens = 1;               // each sends a copy of every event
  RawPress last_press;           // used with several screens only
};

// The major opcode of the X Input extension; nothing without the extension.
std::optional<int> FindXInput(_XDisplay* display);
// Selects raw key and button events on every screen's root window. Returns the number of screens.
int SelectRawInput(_XDisplay* display);

// Takes the next event from the queue, which must not be empty. Returns nothing if it is not a raw
// event. `opcode` is the X Input extension's.
std::optional<RawPress> TakeRawPress(_XDisplay* display, int opcode);

// Whether to count `press`. The server sends a raw event once per root window that selects it, one
// copy right after the other; only the first counts. Two presses of one key have its release
// between them.
bool IsNewPress(const RawPress& press, InputCounters* counters);
bool IsEscape(const RawPress& press);
// `now` is uv_hrtime() in nanoseconds.
void CountPress(const RawPress& press, uint64_t now, InputCounters* counters);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_INPUT_ACTIVITY_H_
