#ifndef SRC_CPP_LINUX_PICTURE_FILE_H_
#define SRC_CPP_LINUX_PICTURE_FILE_H_

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <cstdint>
#include <string>

#include "glib_ptr.h"

namespace kiv {

// Files through which a compositor hands over its pictures.

// Returns an unused, unpredictable path in `directory`, or an empty string. Creates no file,
// because a compositor that refuses would leave it behind. `directory` is used unchanged.
std::string UnusedPath(const std::string& directory);

// More pixels than four 8K monitors have: half a gigabyte when decoded.
constexpr int64_t kMaxPixels = int64_t{1} << 27;

// Decodes the picture. Returns null with the reason, without the path, in `error`. Rejects anything
// but a regular file, without waiting.
GObjectPtr<GdkPixbuf> ReadPicture(const std::string& path, GErrorPtr* error);
// The same for an open file, which stays open. Rejects pictures of more than kMaxPixels, because a
// small file can claim any size.
GObjectPtr<GdkPixbuf> DecodePicture(int fd, GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PICTURE_FILE_H_
