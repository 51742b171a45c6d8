#include "picture_file.h"

#include <sys/random.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>

#include "handed_over_file.h"

namespace kiv {

namespace {

constexpr char kNamePrefix[] = "brenik.";
constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr int kRandomLetters = 10;
constexpr int kAttempts = 100;

// Empty when the kernel returns no random numbers.
std::string RandomName() {
  std::array<uint32_t, kRandomLetters> numbers{};
  if (getrandom(numbers.data(), sizeof numbers, 0) != ssize_t{sizeof numbers}) return {};
  std::string name = kNamePrefix;
  for (const uint32_t number : numbers) name += kLetters[number % (sizeof kLetters - 1)];
  return name;
}

struct Size {
  int64_t width;
  int64_t height;
};

// A PNG begins with its signature and the chunk that holds its size.
constexpr std::array<unsigned char, 16> kPngStart = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n',
                                                     0,    0,   0,   13,  'I',  'H',  'D',  'R'};

int64_t BigEndian(const unsigned char* bytes) {
  return int64_t{bytes[0]} << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
}

// The size in the header. Empty for a file without one: the decoder then reports the error.
Size ClaimedSize(const std::string& path) {
  std::array<unsigned char, kPngStart.size() + 8> start{};
  std::ifstream(path, std::ios::binary)
      .read(reinterpret_cast<char*>(start.data()), std::streamsize{start.size()});
  if (std::equal(kPngStart.begin(), kPngStart.end(), start.begin())) {
    const unsigned char* size = start.data() + kPngStart.size();
    return {BigEndian(size), BigEndian(size + 4)};
  }
  int width = 0;
  int height = 0;
  // Takes milliseconds, a tenth of decoding, so only for formats that compositors do not write.
  if (!gdk_pixbuf_get_file_info(path.c_str(), &width, &height)) return {};
  return {width, height};
}

}  // namespace

std::string UnusedPath(const std::string& directory) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const std::string name = RandomName();
    if (name.empty()) break;
    std::string path = directory + "/";
    path += name;
    struct stat info = {};
    if (lstat(path.c_str(), &info) != 0) return path;
  }
  return {};
}

GObjectPtr<GdkPixbuf> ReadPicture(const std::string& path, GErrorPtr* error) {
  const UniqueFd file = OpenRegularFile(path, 0, error);
  return file ? DecodePicture(file.get(), error) : nullptr;
}

GObjectPtr<GdkPixbuf> DecodePicture(int fd, GErrorPtr* error) {
  // Reads the opened file even if its path was replaced. The decoder's messages show this name.
  const std::string opened = "/proc/self/fd/" + std::to_string(fd);
  const Size claimed = ClaimedSize(opened);
  // Divided, because the product of two 32-bit numbers may overflow.
  if (claimed.width > 0 && claimed.height > kMaxPixels / claimed.width) {
    g_set_error(CollectError(error), GDK_PIXBUF_ERROR, GDK_PIXBUF_ERROR_INSUFFICIENT_MEMORY,
                "The picture claims %" G_GINT64_FORMAT " x %" G_GINT64_FORMAT
                " pixels, too many to be a screen",
                claimed.width, claimed.height);
    return nullptr;
  }
  return AdoptGObject(gdk_pixbuf_new_from_file(opened.c_str(), CollectError(error)));
}

}  // namespace kiv
