#ifndef SRC_CPP_LINUX_TOOLS_X11_LINUX_H_
#define SRC_CPP_LINUX_TOOLS_X11_LINUX_H_

#include <X11/Xlib.h>

#include <cstdint>
#include <string>

#include "x_ptr.h"

// Reading of window properties; the only place in the module that asks the server for one.
// A request for a window that has died raises a protocol error, which goes to the process's X error
// handler: wrap the calls in a kiv::XErrorGuard.
namespace tools_x11 {

// One property of one window as Xlib delivers it.
struct WindowProperty {
  int status = 0;  // Success, or the failure of the request; nothing else is set then
  Atom type = None;
  int format = 0;  // bits of one item: 8, 16 or 32; 0 when the window has no such property
  unsigned long count = 0;
  kiv::XPtr<unsigned char> data;  // null when there is none

  // The first item; 0 when there is none.
  unsigned long FirstItem() const;
  // The bytes of Xlib's buffer up to the first NUL.
  std::string CString() const;
  // Size of one item in Xlib's buffer, where a 32-bit item takes a long.
  size_t ItemSize() const;
};

WindowProperty read_property(Display* display, Window window, Atom property);

}  // namespace tools_x11

#endif  // SRC_CPP_LINUX_TOOLS_X11_LINUX_H_
