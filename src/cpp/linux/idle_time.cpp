#include "idle_time.h"

#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>

#include "dbus_idletime.h"
#include "x_error_guard.h"
#include "x_ptr.h"

namespace kiv {

OptionalSeconds IdleTimeOfX(Display* display) {
  const XErrorGuard guard(display);
  int event_base = 0;
  int error_base = 0;
  if (!XScreenSaverQueryExtension(display, &event_base, &error_base)) return kUnknownSeconds;
  const XPtr<XScreenSaverInfo> info(XScreenSaverAllocInfo());
  if (!info) return kUnknownSeconds;
  if (!XScreenSaverQueryInfo(display, DefaultRootWindow(display), info.get())) {
    return kUnknownSeconds;
  }
  return {true, static_cast<uint32_t>(info->idle / 1000)};
}

OptionalSeconds IdleTimeOfMutter() {
  long long idle_ms = 0;
  if (!GnomeIdleTime::GetIdleTime(idle_ms)) return kUnknownSeconds;
  return {true, static_cast<uint32_t>(idle_ms / 1000)};
}

}  // namespace kiv
