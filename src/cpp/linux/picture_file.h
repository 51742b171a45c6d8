#ifndef SRC_CPP_LINUX_PICTURE_FILE_H_
#define SRC_CPP_LINUX_PICTURE_FILE_H_

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <cstdint>
#include <string>

#include "glib_ptr.h"

namespace kiv {

// Files in which a compositor hands over its pictures.

// A path in `directory` that does not exist and cannot be guessed; empty when there is none. No
// file is made: a compositor that refuses would leave it behind. `directory` goes in unchanged.
std::string UnusedPath(const std::string& directory);

// No picture has more pixels than four 8K monitors and some: half a gigabyte decoded.
constexpr int64_t kMaxPixels = int64_t{1} << 27;

// The decoded picture, or null with the reason in `error`, which does not tell the path. Anything
// but a regular file is refused, without waiting for it.
GObjectPtr<GdkPixbuf> ReadPicture(const std::string& path, GErrorPtr* error);
// The same for an open file, which stays open. A picture of more than kMaxPixels is
// refused: a few bytes can claim any size.
GObjectPtr<GdkPixbuf> DecodePicture(int fd, GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PICTURE_FILE_H_
