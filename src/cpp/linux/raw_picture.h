#ifndef SRC_CPP_LINUX_RAW_PICTURE_H_
#define SRC_CPP_LINUX_RAW_PICTURE_H_

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <cstddef>
#include <optional>

#include "deadline.h"
#include "glib_ptr.h"

namespace kiv {

// An uncompressed picture that comes through a pipe: rows of `stride` bytes, which begin with
// `width` pixels of four bytes each: blue, green, red, or red, green, blue, and one that is
// ignored.
struct RawPictureShape {
  int width;
  int height;
  size_t stride;
  bool red_first;
};

// The shape that KWin describes in a dictionary "a{sv}"; nothing, with the reason in `error`, for
// another format and for what cannot be a screen. The peer is untrusted.
std::optional<RawPictureShape> ReadRawPictureShape(GVariant* description, GErrorPtr* error);

// Reads such a picture from a descriptor; null, with the reason in `error`, when it ends early or
// has not arrived by the deadline. The descriptor stays open and is made non-blocking.
GObjectPtr<GdkPixbuf> ReadRawPicture(int fd, const RawPictureShape& shape, const Deadline& deadline,
                                     GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_RAW_PICTURE_H_
