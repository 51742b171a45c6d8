#ifndef SRC_CPP_PERMISSION_DESKTOP_FACTS_H_
#define SRC_CPP_PERMISSION_DESKTOP_FACTS_H_

#include <optional>
#include <string>
#include <vector>

namespace kiv {

// What this process finds on its desktop, for `kiv_native doctor`. Nothing here takes a picture,
// shows a question or writes a file. On any thread, one at a time.

// Which of these names are owned on the session bus; empty when the bus does not say. Blocks for
// two seconds at most, for five when the bus does not answer.
std::optional<std::vector<bool>> FindOwned(const std::vector<std::string>& names);

// The name of the D-Bus error with which each compositor's service answers a request that it
// cannot fulfil: one of another name when it refuses the caller. "timeout" when it does not answer,
// "failed" for an error of the bus, empty when the service answers without an error. Blocks as
// FindOwned does.
struct ServiceErrors {
  std::string gnome;
  std::string kwin;
  std::string screenshot2;
};
ServiceErrors TryServices();

// The X server of DISPLAY. A server that does not answer blocks the caller for good.
struct DisplayFacts {
  int width = 0;  // pixels of the default screen
  int height = 0;
  bool window_found = false;  // there is an active window
  std::string title;          // its own, or "Undefined"
};
std::optional<DisplayFacts> ReadDisplay();

// The version of the GTK 3 that the dynamic linker finds; empty when it finds none.
std::string GtkVersion();

// How many of the host's four functions are in the process's global scope.
int CountHostFunctions();

}  // namespace kiv

#endif  // SRC_CPP_PERMISSION_DESKTOP_FACTS_H_
