#include "input_activity.h"

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

#include <cstring>

#include "x_error_guard.h"

namespace kiv {

namespace {

constexpr int kEscapeKeycode = 9;
constexpr int kWheelUp = 4;
constexpr int kWheelDown = 5;
constexpr uint64_t kWheelBurstGap = 1'000'000'000;

// The id of the first device with that name, or `fallback`.
int FindDevice(Display* display, const char* name, int fallback) {
  int count = 0;
  XIDeviceInfo* devices = XIQueryDevice(display, XIAllDevices, &count);
  if (!devices) return fallback;
  int id = fallback;
  for (int i = 0; i < count; ++i) {
    if (std::strcmp(devices[i].name, name) == 0) {
      id = devices[i].deviceid;
      break;
    }
  }
  XIFreeDeviceInfo(devices);
  return id;
}

void SelectOnEveryRoot(Display* display, XIEventMask* mask) {
  for (int screen = 0; screen < ScreenCount(display); ++screen) {
    XISelectEvents(display, RootWindow(display, screen), mask, 1);
  }
}

}  // namespace

std::optional<int> FindXInput(Display* display) {
  int opcode = 0;
  int event_base = 0;
  int error_base = 0;
  if (!XQueryExtension(display, "XInputExtension", &opcode, &event_base, &error_base)) {
    return std::nullopt;
  }
  return opcode;
}

int SelectRawInput(Display* display) {
  // A device may disappear between its look-up and the selection.
  const XErrorGuard guard(display);
  unsigned char bits[4] = {};
  XIEventMask mask = {0, sizeof bits, bits};
  XISetMask(bits, XI_RawKeyPress);
  XISetMask(bits, XI_RawKeyRelease);
  mask.deviceid = FindDevice(display, "Virtual core keyboard", mask.deviceid);
  SelectOnEveryRoot(display, &mask);

  XISetMask(bits, XI_RawButtonPress);
  XISetMask(bits, XI_RawButtonRelease);
  mask.deviceid = FindDevice(display, "Virtual core pointer", mask.deviceid);
  SelectOnEveryRoot(display, &mask);
  XFlush(display);
  return ScreenCount(display);
}

std::optional<RawPress> TakeRawPress(Display* display, int opcode) {
  XEvent event;
  XNextEvent(display, &event);
  XGenericEventCookie* cookie = &event.xcookie;
  if (cookie->type != GenericEvent || cookie->extension != opcode) return std::nullopt;
  if (!XGetEventData(display, cookie)) return std::nullopt;
  RawPress press;
  if (cookie->evtype == XI_RawKeyPress || cookie->evtype == XI_RawButtonPress) {
    press.type = cookie->evtype;
    // Null when Xlib runs out of memory. The press still counts.
    if (const auto* raw = static_cast<const XIRawEvent*>(cookie->data)) {
      press = {cookie->evtype, raw->detail, raw->sourceid, raw->time};
    }
  }
  XFreeEventData(display, cookie);
  return press;
}

bool IsNewPress(const RawPress& press, InputCounters* counters) {
  if (counters->screens == 1) return press.type != 0;
  const bool copy = press == counters->last_press;
  counters->last_press = press;
  return press.type != 0 && !copy;
}

bool IsEscape(const RawPress& press) {
  return press.type == XI_RawKeyPress && press.detail == kEscapeKeycode;
}

void CountPress(const RawPress& press, uint64_t now, InputCounters* counters) {
  if (press.type == XI_RawKeyPress) {
    ++counters->keyboard_activity;
    return;
  }
  const bool wheel = press.detail == kWheelUp || press.detail == kWheelDown;
  const bool burst =
      wheel && counters->wheel_seen && now - counters->last_wheel_time < kWheelBurstGap;
  if (!burst) ++counters->mouse_activity;
  if (!wheel) return;
  counters->wheel_seen = true;
  counters->last_wheel_time = now;
}

}  // namespace kiv
