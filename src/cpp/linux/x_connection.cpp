#include "x_connection.h"

#include <X11/Xlib.h>
#include <dlfcn.h>

#include "desktop_session_agent_linux.h"
#include "x_error_guard.h"

namespace kiv {

namespace {

// XIOErrorExitHandler's type, spelled out for headers older than libX11 1.7.
using ExitHandler = void (*)(Display*, void*);
using SetExitHandler = void (*)(Display*, ExitHandler, void*);

Display* watched_display = nullptr;
XIOErrorHandler previous_io_handler = nullptr;
// Ours may have to stay below a handler that somebody put on top; it is never installed twice.
bool handler_installed = false;

SetExitHandler FindSetExitHandler() {
  return reinterpret_cast<SetExitHandler>(dlsym(RTLD_DEFAULT, "XSetIOErrorExitHandler"));
}

// GDK's handler ends the process before libX11 asks the connection's exit handler, so ours stands
// before it and answers for our connection only.
int OnIoError(Display* display) {
  if (display == watched_display) return 0;
  return previous_io_handler ? previous_io_handler(display) : 0;
}

void InstallIoHandler() {
  if (handler_installed) return;
  previous_io_handler = XSetIOErrorHandler(OnIoError);
  handler_installed = true;
}

void RemoveIoHandler() {
  const XIOErrorHandler current = XSetIOErrorHandler(previous_io_handler);
  handler_installed = current != OnIoError;
  // Somebody put a handler above ours meanwhile; it stays, and ours below it hands everything on.
  if (handler_installed) XSetIOErrorHandler(current);
}

void OnConnectionLost(Display* /*display*/, void* lost) { *static_cast<bool*>(lost) = true; }

}  // namespace

bool OpenXConnection(DesktopSessionData* data) {
  data->display = XOpenDisplay(nullptr);
  if (!data->display) return false;
  if (const SetExitHandler set_exit_handler = FindSetExitHandler()) {
    set_exit_handler(data->display, OnConnectionLost, &data->display_lost);
    watched_display = data->display;
    InstallIoHandler();
  }
  int event_base = 0;
  int error_base = 0;
  return XQueryExtension(data->display, "XInputExtension", &data->xi_opcode, &event_base,
                         &error_base) == True;
}

void CloseXConnection(DesktopSessionData* data) {
  if (!data->display) return;
  XCloseDisplay(data->display);
  data->display_lost = false;
  const bool watched = data->display == watched_display;
  data->display = nullptr;
  if (!watched) return;
  watched_display = nullptr;
  RemoveIoHandler();
}

void InternAtoms(DesktopSessionData* data) {
  const XErrorGuard guard(data->display);
  data->atom_net_wm_pid = XInternAtom(data->display, "_NET_WM_PID", False);
  data->atom_net_wm_name = XInternAtom(data->display, "_NET_WM_NAME", False);
  data->atom_wm_name = XInternAtom(data->display, "_WM_NAME", False);
  data->atom_net_active_window = XInternAtom(data->display, "_NET_ACTIVE_WINDOW", False);
}

}  // namespace kiv
