#ifndef SRC_CPP_LINUX_ACTIVE_WINDOW_H_
#define SRC_CPP_LINUX_ACTIVE_WINDOW_H_

#include <string>
#include <vector>

#include "../screen_snap.h"

struct _XDisplay;

namespace kiv {

// Names of the properties that are read.
struct ActiveWindowAtoms {
  unsigned long atom_net_active_window = 0;
  unsigned long atom_net_wm_pid = 0;
  unsigned long atom_net_wm_name = 0;
  unsigned long atom_wm_name = 0;  // "_WM_NAME", not the older "WM_NAME"
};

// Makes the atoms where the server does not know them.
ActiveWindowAtoms InternActiveWindowAtoms(_XDisplay* display);

// The window that the person works in; "Undefined" for what cannot be found.
struct ActiveTask {
  std::string title = kUndefined;     // bytes as the window gives them, at most 1 MiB
  std::string process = kUndefined;   // command line with its NUL separators
  std::vector<std::string> warnings;  // lines for the log
  bool found = false;                 // there is such a window
};

// Asks the default root window of `display`, which must not be null. Waits for replies; the window
// may die meanwhile.
ActiveTask ReadActiveTask(_XDisplay* display, const ActiveWindowAtoms& atoms);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_ACTIVE_WINDOW_H_
