#ifndef SRC_CPP_LINUX_RAW_PICTURE_H_
#define SRC_CPP_LINUX_RAW_PICTURE_H_

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <cstddef>
#include <optional>

#include "deadline.h"
#include "glib_ptr.h"

namespace kiv {

// An uncompressed picture that arrives through a pipe. Each row has `stride` bytes and starts with
// `width` pixels of four bytes: blue, green, red or red, green, blue, then one unused byte.
struct RawPictureShape {
  int width;
  int height;
  size_t stride;
  bool red_first;
};

// Reads the shape from KWin's dictionary "a{sv}". KWin is an untrusted peer here: another format or
// an impossible size gives nothing, with the reason in `error`.
std::optional<RawPictureShape> ReadRawPictureShape(GVariant* description, GErrorPtr* error);

// Reads such a picture from `fd`. Returns null with the reason in `error` when the data ends early
// or is late. `fd` stays open and becomes non-blocking.
GObjectPtr<GdkPixbuf> ReadRawPicture(int fd, const RawPictureShape& shape, const Deadline& deadline,
                                     GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_RAW_PICTURE_H_
