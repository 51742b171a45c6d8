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

// Reads window properties. No other code in the module does.
//
// Wrap calls in a kiv::XErrorGuard: the atom None or a window that was destroyed raises a protocol
// error. Pass an open connection that no other thread uses. Atom names are cached for one display
// only. Calls wait for replies and log nothing.
// atoms are remembered for one display only. Replies are waited for; nothing is logged.
namespace tools_x11 {

// One property of a window, as Xlib returns it.
struct WindowProperty {
  int status = 0;  // Success, or the request's failure; then nothing else is set
  Atom type = None;
  int format = 0;           // bits of one item: 8, 16 or 32; 0 when the window has no such property
  unsigned long count = 0;  // items read
  unsigned long total = 0;  // items of the property
  kiv::XPtr<unsigned char> data;  // null when the window has no such property

  // The first item, or 0.
  unsigned long FirstItem() const;
  // The bytes of Xlib's buffer up to the first NUL.
  std::string CString() const;
  // Size of one item in Xlib's buffer, where a 32-bit item is a long.
  size_t ItemSize() const;
};

// As much of a property as asked for.
constexpr long kWholeProperty = -1;

// Reads at most `units` * 32 bits from the property's start: a client may store gigabytes.
WindowProperty read_property(Display* display, Window window, Atom property, long units);

// Returns the property's items, format / 8 bytes each, in the machine's byte order. Empty when
// there is no such property or the request fails. The outputs may be null. A failed request sets
// `count` to 0; the window None sends no request and sets `count` and `format` to 0. Other outputs
// are then unchanged.
std::vector<uint8_t> get_property(Display* display, Window window, Atom property,
                                  unsigned long* count = nullptr, int* format = nullptr,
                                  unsigned long* type = nullptr);
// The same by name. The atom is looked up once: a name unknown to the server at that time stays
// None for the life of the process.
std::vector<uint8_t> get_property(Display* display, Window window, const char* name,
                                  unsigned long* count = nullptr, int* format = nullptr,
                                  unsigned long* type = nullptr);

// Returns the top-level window that contains the active one (a reparenting window manager's frame),
// and writes the active window's title and command line to the record's snapshot: the title as the
// window set it, possibly empty, the command line as ReadCommandLine returns it, or "Undefined".
// Returns None when no window is active (the record is unchanged) or when it is destroyed
// meanwhile.
Window find_top_level_active_window(Display* display, kiv::DesktopSessionData* data);

// Empty when Xinerama is not active.
std::vector<XineramaScreenInfo> xinerama_query_screens(Display* display);

}  // namespace tools_x11

#endif  // SRC_CPP_LINUX_TOOLS_X11_LINUX_H_
