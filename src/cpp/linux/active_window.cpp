#include "active_window.h"

#include <X11/Xlib.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "../log_request_ids.h"
#include "../logging.h"
#include "desktop_session_agent_linux.h"
#include "input_activity.h"
#include "process_command_line.h"
#include "tools_x11_linux.h"
#include "x_error_guard.h"

namespace kiv {

namespace {

constexpr long kFirstItem = 1;
constexpr long kLongestTitle = (1L << 20) / 4;

// Lines are kept until the X error guard is gone: emitting one may enter JavaScript.
using LogLines = std::vector<std::string>;

template <typename... Values>
void AddLine(LogLines* lines, const char* id, Values... values) {
  std::string line(id);
  ((line += ":", line += std::to_string(values)), ...);
  lines->push_back(std::move(line));
}

std::optional<Window> ReadActiveWindow(DesktopSessionData* data, Window root, LogLines* lines) {
  const auto active =
      tools_x11::read_property(data->display, root, data->atom_net_active_window, kFirstItem);
  if (active.status != Success) {
    AddLine(lines, kLoggingRequestId_ActiveTaskInfoStatusError);
    return std::nullopt;
  }
  if (active.count == 0) {
    AddLine(lines, kLoggingRequestId_ActiveTaskInfoCountError);
    return std::nullopt;
  }
  if (!active.data) {
    AddLine(lines, kLoggingRequestId_ActiveTaskInfoValuesError);
    return std::nullopt;
  }
  if (active.format != 32 || active.total != 1) {
    AddLine(lines, kLoggingRequestId_FetchActiveTaskInfo_XGetWindowProperty1r4, active.format,
            active.total);
  }
  return active.FirstItem();
}

void ReadProcess(DesktopSessionData* data, Window window, LogLines* lines) {
  const auto pid =
      tools_x11::read_property(data->display, window, data->atom_net_wm_pid, kFirstItem);
  if (pid.status != Success) return;
  if (pid.format != 32 || pid.total != 1) {
    AddLine(lines, kLoggingRequestId_FetchActiveTaskInfo_XGetWindowProperty2r1, pid.format,
            pid.total);
  }
  if (!pid.data) return;
  auto command_line = ReadCommandLine(static_cast<int32_t>(pid.FirstItem()));
  if (command_line) data->snap.activeProcessName = std::move(*command_line);
}

void ReadTitle(DesktopSessionData* data, Window window, LogLines* lines) {
  auto title =
      tools_x11::read_property(data->display, window, data->atom_net_wm_name, kLongestTitle);
  if (title.status != Success) {
    title = tools_x11::read_property(data->display, window, data->atom_wm_name, kLongestTitle);
    if (title.status != Success) return;
  }
  if (title.format != 8) {
    AddLine(lines, kLoggingRequestId_FetchActiveTaskInfo_XGetWindowProperty4r1, title.format);
  }
  if (title.data) data->snap.activeWindowTitle = title.CString();
}

}  // namespace

void FetchActiveTaskInfo(DesktopSessionData* data) {
  data->snap.activeWindowTitle = kUndefined;
  data->snap.activeProcessName = kUndefined;
  if (!data->HasDisplay()) return;
  LogLines lines;
  {
    // The active window may die between any two of these requests.
    const XErrorGuard guard(data->display);
    const auto window = ReadActiveWindow(data, DefaultRootWindow(data->display), &lines);
    if (window) {
      ReadProcess(data, *window, &lines);
      ReadTitle(data, *window, &lines);
    }
  }
  AfterRoundTrip(data);
  for (const std::string& line : lines) LogMessage(LogMessage::warn).stream() << line;
}

}  // namespace kiv
