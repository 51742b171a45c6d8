#ifndef SRC_CPP_LINUX_TOOLS_X11_LINUX_H_
#define SRC_CPP_LINUX_TOOLS_X11_LINUX_H_

#include <X11/Xlib.h>
#include <X11/extensions/Xinerama.h>

#include <cstdint>
#include <string>
#include <vector>

#include "x_ptr.h"

namespace kiv {
struct DesktopSessionData;
}

// Reading of window properties; the only place in the module that asks the server for one.
//
// What every caller has to do: a request for a window that has died, or for the atom None, raises a
// protocol error, which goes to the process's X error handler; nothing here installs one. Wrap the
// calls in a kiv::XErrorGuard. Pass an open connection that no other thread uses; the names of
// atoms are remembered for one display only. Replies are waited for; nothing is logged.
namespace tools_x11 {

// One property of one window as Xlib delivers it.
struct WindowProperty {
  int status = 0;  // Success, or the failure of the request; nothing else is set then
  Atom type = None;
  int format = 0;           // bits of one item: 8, 16 or 32; 0 when the window has no such property
  unsigned long count = 0;  // items read
  unsigned long total = 0;  // items of the property
  kiv::XPtr<unsigned char> data;  // null when there is none

  // The first item; 0 when there is none.
  unsigned long FirstItem() const;
  // The bytes of Xlib's buffer up to the first NUL.
  std::string CString() const;
  // Size of one item in Xlib's buffer, where a 32-bit item takes a long.
  size_t ItemSize() const;
};

// As much of a property as asked for.
constexpr long kWholeProperty = -1;

// Reads at most `units` times 32 bits from the start of the property: a client may store gigabytes.
WindowProperty read_property(Display* display, Window window, Atom property, long units);

// The items of a property, format / 8 bytes each, in the machine's byte order; empty when there is
// no such property and when the request fails. The outputs may be null. A failed request sets
// `count` to 0; the window None, for which nothing is sent, sets `count` and `format` to 0; other
// outputs are left alone then.
std::vector<uint8_t> get_property(Display* display, Window window, Atom property,
                                  unsigned long* count = nullptr, int* format = nullptr,
                                  unsigned long* type = nullptr);
// The same by the atom's name, which is looked up once: a name that the server did not know then
// stays None for the life of the process.
std::vector<uint8_t> get_property(Display* display, Window window, const char* name,
                                  unsigned long* count = nullptr, int* format = nullptr,
                                  unsigned long* type = nullptr);

// The top-level window that holds the active one: under a reparenting window manager its frame.
// None, with the record untouched, when no window is active; None as well when the active one dies
// during the search. Writes the title as the window gives it, perhaps empty, and the command line
// of its process in ReadCommandLine's form, "Undefined" where there is none, into the record's
// snapshot.
Window find_top_level_active_window(Display* display, kiv::DesktopSessionData* data);

// Empty when Xinerama is not active.
std::vector<XineramaScreenInfo> xinerama_query_screens(Display* display);

}  // namespace tools_x11

#endif  // SRC_CPP_LINUX_TOOLS_X11_LINUX_H_
