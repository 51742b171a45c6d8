#include "picture_file.h"

#include <sys/random.h>
#include <sys/stat.h>

#include <array>
#include <cstdint>

namespace kiv {

namespace {

constexpr char kNamePrefix[] = "brenik.";
constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr int kRandomLetters = 10;
constexpr int kAttempts = 100;
constexpr int64_t kMaxPixels = int64_t{1} << 27;

// Empty when the kernel gives no random numbers.
std::string RandomName() {
  std::array<uint32_t, kRandomLetters> numbers{};
  if (getrandom(numbers.data(), sizeof numbers, 0) != ssize_t{sizeof numbers}) return {};
  std::string name = kNamePrefix;
  for (const uint32_t number : numbers) name += kLetters[number % (sizeof kLetters - 1)];
  return name;
}

bool IsOtherThanFile(const std::string& path) {
  struct stat info = {};
  return stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode);
}

}  // namespace

std::string UnusedPath(const std::string& directory) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const std::string name = RandomName();
    if (name.empty()) break;
    std::string path = directory + "/" + name;
    struct stat info = {};
    if (lstat(path.c_str(), &info) != 0) return path;
  }
  return {};
}

GObjectPtr<GdkPixbuf> ReadPicture(const std::string& path, GErrorPtr* error) {
  if (IsOtherThanFile(path)) {
    g_set_error(CollectError(error), G_IO_ERROR, G_IO_ERROR_NOT_REGULAR_FILE,
                "%s is not a regular file", path.c_str());
    return nullptr;
  }
  int width = 0;
  int height = 0;
  // Reads the header only. A file without one is left to the decoder, which knows what is wrong.
  if (gdk_pixbuf_get_file_info(path.c_str(), &width, &height) &&
      int64_t{width} * height > kMaxPixels) {
    g_set_error(CollectError(error), GDK_PIXBUF_ERROR, GDK_PIXBUF_ERROR_INSUFFICIENT_MEMORY,
                "%s claims %d x %d pixels, too many to be a screen", path.c_str(), width, height);
    return nullptr;
  }
  return AdoptGObject(gdk_pixbuf_new_from_file(path.c_str(), CollectError(error)));
}

}  // namespace kiv
