#include "input_activity.h"

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

#include <cstring>

#include "../event_scope.h"
#include "../log_request_ids.h"
#include "../logging.h"
#include "desktop_session_agent_linux.h"
#include "user_selection_helper_linux.h"
#include "x_error_guard.h"

namespace kiv {

namespace {

constexpr int kEscapeKeycode = 9;
constexpr int kWheelUp = 4;
constexpr int kWheelDown = 5;
constexpr uint64_t kWheelBurstGap = 1'000'000'000;
// Longest stretch for which a flood of events may hold the loop; the rest waits one turn.
constexpr uint64_t kDrainBudget = 4'000'000;
constexpr unsigned kEventsPerClockReading = 64;

// The id of the first device of that name, or `fallback`.
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

void CountButton(DesktopSessionData* data, int button) {
  if (button != kWheelUp && button != kWheelDown) {
    ++data->mouse_activity;
    return;
  }
  const uint64_t now = uv_hrtime();
  if (!data->wheel_seen || now - data->last_wheel_time >= kWheelBurstGap) ++data->mouse_activity;
  data->wheel_seen = true;
  data->last_wheel_time = now;
}

// A server sends a raw event once for every root window on which it is selected, one copy right
// after the other; only the first counts. Two presses of one key have its release between them.
bool IsCopy(DesktopSessionData* data, const RawPress& press) {
  if (ScreenCount(data->display) == 1) return false;
  const bool copy = press.type != 0 && press == data->last_press;
  data->last_press = press;
  return copy;
}

void HandleNextEvent(DesktopSessionData* data) {
  Display* display = data->display;
  XEvent event;
  XNextEvent(display, &event);
  XGenericEventCookie* cookie = &event.xcookie;
  if (cookie->type != GenericEvent || cookie->extension != data->xi_opcode) return;
  if (!XGetEventData(display, cookie)) return;
  RawPress press;
  if (cookie->evtype == XI_RawKeyPress || cookie->evtype == XI_RawButtonPress) {
    press.type = cookie->evtype;
    // Null where Xlib had no memory for it. A press it is all the same.
    if (const auto* raw = static_cast<const XIRawEvent*>(cookie->data)) {
      press = {cookie->evtype, raw->detail, raw->sourceid, raw->time};
    }
  }
  // Freed before anything that may close the connection.
  XFreeEventData(display, cookie);
  if (IsCopy(data, press)) return;
  if (press.type == XI_RawKeyPress) {
    if (press.detail == kEscapeKeycode) data->selection->EscPressed();
    ++data->keyboard_activity;
  } else if (press.type == XI_RawButtonPress) {
    CountButton(data, press.detail);
  }
}

// What Xlib has queued needs no call.
bool HasEvents(Display* display) { return QLength(display) > 0 || XPending(display) > 0; }

void Drain(DesktopSessionData* data) {
  const uint64_t start = uv_hrtime();
  for (unsigned handled = 1; data->HasDisplay() && HasEvents(data->display); ++handled) {
    HandleNextEvent(data);
    if (handled % kEventsPerClockReading == 0 && uv_hrtime() - start > kDrainBudget) break;
  }
  AfterRoundTrip(data);
}

// What does not need the X server goes on: the timer, lock events, the bus.
void OnDisplayLost(DesktopSessionData* data) {
  data->ReleaseDisplay();
  LogMessage(LogMessage::error).stream() << kLoggingRequestId_DisplayLost;
}

void PollCallback(uv_poll_t* handle, int status, int /*events*/) {
  const EventScope event_scope;
  auto* data = static_cast<DesktopSessionData*>(handle->data);
  if (status < 0) {
    StopInputPoll(data);
    // Where the server is gone, Xlib has to see it, too.
    if (data->HasDisplay()) XPending(data->display);
    if (data->display_lost) OnDisplayLost(data);
    return;
  }
  Drain(data);
}

void OnWake(uv_async_t* handle) {
  const EventScope event_scope;
  auto* data = static_cast<DesktopSessionData*>(handle->data);
  if (data->display_lost) return OnDisplayLost(data);
  if (data->x_poll_active) Drain(data);
}

}  // namespace

void SelectRawInput(Display* display) {
  // A device may vanish between its look-up and the selection.
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
}

bool StartInputPoll(DesktopSessionData* data) {
  data->x_poll_active = data->x_wake.Start(OnWake, data) &&
                        data->x_poll.Start(ConnectionNumber(data->display), PollCallback, data);
  if (!data->x_poll_active) StopInputPoll(data);
  // The set-up's own round trips may have read events already.
  AfterRoundTrip(data);
  return data->x_poll_active;
}

void StopInputPoll(DesktopSessionData* data) {
  data->x_poll.Close();
  data->x_wake.Close();
  data->x_poll_active = false;
}

void AfterRoundTrip(DesktopSessionData* data) {
  if (data->display_lost || (data->display && QLength(data->display) > 0)) data->x_wake.Send();
}

}  // namespace kiv
