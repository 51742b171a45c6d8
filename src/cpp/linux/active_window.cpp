#include "active_window.h"

#include <X11/Xlib.h>

#include <cstdint>
#include <optional>
#include <utility>

#include "../log_request_ids.h"
#include "process_command_line.h"
#include "tools_x11_linux.h"
#include "x_error_guard.h"

namespace kiv {

namespace {

constexpr long kFirstItem = 1;
constexpr long kLongestTitle = (1L << 20) / 4;

// "id:value:value"
template <typename... Values>
void Warn(ActiveTask* task, const char* id, Values... values) {
  std::string line(id);
  ((line += ":", line += std::to_string(values)), ...);
  task->warnings.push_back(std::move(line));
}

std::optional<Window> ReadActiveWindow(Display* display, Atom property, ActiveTask* task) {
  const auto active =
      tools_x11::read_property(display, DefaultRootWindow(display), property, kFirstItem);
  if (active.status != Success) {
    Warn(task, kLoggingRequestId_ActiveTaskInfoStatusError);
    return std::nullopt;
  }
  if (active.count == 0) {
    Warn(task, kLoggingRequestId_ActiveTaskInfoCountError);
    return std::nullopt;
  }
  if (!active.data) {
    Warn(task, kLoggingRequestId_ActiveTaskInfoValuesError);
    return std::nullopt;
  }
  if (active.format != 32 || active.total != 1) {
    Warn(task, kLoggingRequestId_FetchActiveTaskInfo_XGetWindowProperty1r4, active.format,
         active.total);
  }
  return active.FirstItem();
}

void ReadProcess(Display* display, Window window, Atom property, ActiveTask* task) {
  const auto pid = tools_x11::read_property(display, window, property, kFirstItem);
  if (pid.status != Success) return;
  if (pid.format != 32 || pid.total != 1) {
    Warn(task, kLoggingRequestId_FetchActiveTaskInfo_XGetWindowProperty2r1, pid.format, pid.total);
  }
  if (!pid.data) return;
  auto command_line = ReadCommandLine(static_cast<int32_t>(pid.FirstItem()));
  if (command_line) task->process = std::move(*command_line);
}

void ReadTitle(Display* display, Window window, const ActiveWindowAtoms& atoms, ActiveTask* task) {
  auto title = tools_x11::read_property(display, window, atoms.atom_net_wm_name, kLongestTitle);
  if (title.status != Success) {
    title = tools_x11::read_property(display, window, atoms.atom_wm_name, kLongestTitle);
    if (title.status != Success) return;
  }
  if (title.format != 8) {
    Warn(task, kLoggingRequestId_FetchActiveTaskInfo_XGetWindowProperty4r1, title.format);
  }
  if (title.data) task->title = title.CString();
}

}  // namespace

ActiveWindowAtoms InternActiveWindowAtoms(Display* display) {
  const XErrorGuard guard(display);
  ActiveWindowAtoms atoms;
  atoms.atom_net_wm_pid = XInternAtom(display, "_NET_WM_PID", False);
  atoms.atom_net_wm_name = XInternAtom(display, "_NET_WM_NAME", False);
  atoms.atom_wm_name = XInternAtom(display, "_WM_NAME", False);
  atoms.atom_net_active_window = XInternAtom(display, "_NET_ACTIVE_WINDOW", False);
  return atoms;
}

ActiveTask ReadActiveTask(Display* display, const ActiveWindowAtoms& atoms) {
  ActiveTask task;
  // The window may be destroyed between any two of these requests.
  const XErrorGuard guard(display);
  const auto window = ReadActiveWindow(display, atoms.atom_net_active_window, &task);
  if (window) {
    task.found = *window != None;
    ReadProcess(display, *window, atoms.atom_net_wm_pid, &task);
    ReadTitle(display, *window, atoms, &task);
  }
  return task;
}

}  // namespace kiv
