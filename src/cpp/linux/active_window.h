#ifndef SRC_CPP_LINUX_ACTIVE_WINDOW_H_
#define SRC_CPP_LINUX_ACTIVE_WINDOW_H_

#include <string>
#include <vector>

#include "../screen_snap.h"

struct _XDisplay;

namespace kiv {

// Atoms of the properties that are read.
struct ActiveWindowAtoms {
  unsigned long atom_net_active_window = 0;
  unsigned long atom_net_wm_pid = 0;
  unsigned long atom_net_wm_name = 0;
  unsigned long atom_wm_name = 0;  // "_WM_NAME", not the older "WM_NAME"
};

// Creates atoms that the server does not know yet.
ActiveWindowAtoms InternActiveWindowAtoms(_XDisplay* display);

// The active window's title and process; "Undefined" when unknown.
struct ActiveTask {
  std::string title = kUndefined;     // bytes as the window set them, at most 1 MiB
  std::string process = kUndefined;   // command line with its NUL separators
  std::vector<std::string> warnings;  // lines for the log
  bool found = false;                 // there is such a window
};

// Reads from the default root window of `display`, which must not be null. Waits for replies. The
// window may be destroyed meanwhile.
ActiveTask ReadActiveTask(_XDisplay* display, const ActiveWindowAtoms& atoms);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_ACTIVE_WINDOW_H_
