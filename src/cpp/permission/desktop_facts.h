#ifndef SRC_CPP_PERMISSION_DESKTOP_FACTS_H_
#define SRC_CPP_PERMISSION_DESKTOP_FACTS_H_

#include <optional>
#include <string>
#include <vector>

namespace kiv {

// Facts about the desktop, for `kiv_native doctor`. No function takes a picture, shows a question
// or writes a file. Any thread, one at a time.

// Returns which of these names have an owner on the session bus, or nothing when a call fails.
// Blocks for two seconds at most, for five when the bus hangs.
std::optional<std::vector<bool>> FindOwned(const std::vector<std::string>& names);

// Sends each compositor's service a request that it cannot fulfil, and returns the names of the
// D-Bus errors; a service that refuses the caller answers with another error. "timeout" means no
// answer, "failed" an error of the bus, an empty string no error. Blocks as FindOwned does.
struct ServiceErrors {
  std::string gnome;
  std::string kwin;
  std::string screenshot2;
};
ServiceErrors TryServices();

// Reads the X server of DISPLAY. Blocks without a limit when the server hangs.
struct DisplayFacts {
  int width = 0;  // pixels of the default screen
  int height = 0;
  bool window_found = false;  // there is an active window
  std::string title;          // or "Undefined"
};
std::optional<DisplayFacts> ReadDisplay();

// Returns the version of GTK 3 that the dynamic linker finds, or an empty string.
std::string GtkVersion();

// Counts the host's utility functions in the process's global scope, 0 to 4.
int CountHostFunctions();

}  // namespace kiv

#endif  // SRC_CPP_PERMISSION_DESKTOP_FACTS_H_
