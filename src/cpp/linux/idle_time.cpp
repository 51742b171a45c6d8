// How long the user has been idle.

#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>

#include "dbus_idletime.h"
#include "desktop_session_agent_linux.h"
#include "input_activity.h"
#include "x_error_guard.h"
#include "x_ptr.h"

namespace kiv {

namespace {

constexpr OptionalSeconds kUnknown = {false, 0xFFFFFFFF};

OptionalSeconds IdleOfX(Display* display) {
  const XErrorGuard guard(display);
  int event_base = 0;
  int error_base = 0;
  if (!XScreenSaverQueryExtension(display, &event_base, &error_base)) return kUnknown;
  const XPtr<XScreenSaverInfo> info(XScreenSaverAllocInfo());
  if (!info) return kUnknown;
  if (!XScreenSaverQueryInfo(display, DefaultRootWindow(display), info.get())) return kUnknown;
  return {true, static_cast<uint32_t>(info->idle / 1000)};
}

OptionalSeconds IdleOfMutter() {
  long long idle_ms = 0;
  if (!GnomeIdleTime::GetIdleTime(idle_ms)) return kUnknown;
  return {true, static_cast<uint32_t>(idle_ms / 1000)};
}

}  // namespace

void DesktopSessionAgent::UpdateLastTimes() {
  data_.last_key_press = kUnknown;
  data_.last_mouse_click = kUnknown;
  data_.last_mouse_move = kUnknown;
  data_.last_input = kUnknown;
  if (!data_.is_x11) {
    data_.last_input = IdleOfMutter();
  } else if (data_.HasDisplay()) {
    data_.last_input = IdleOfX(data_.display);
    AfterRoundTrip(&data_);
  }
}

}  // namespace kiv
