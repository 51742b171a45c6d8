#include "handed_over_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace kiv {

namespace {

constexpr time_t kSlackSeconds = 1;

// Returns why a file cannot be the requested picture, or null.
const char* Reason(int fd, time_t asked) {
  struct stat info = {};
  if (fstat(fd, &info) != 0 || info.st_uid != geteuid())
    return "The picture belongs to another user";
  if (info.st_nlink != 1) return "The picture's file has other names, too";
  if (info.st_mtim.tv_sec < asked - kSlackSeconds) return "The picture is older than the request";
  return nullptr;
}

}  // namespace

HandedOverFile::HandedOverFile(std::string path, time_t asked, GErrorPtr* error)
    : path_(std::move(path)), fd_(OpenRegularFile(path_, O_NOFOLLOW, error)) {
  const char* reason = fd_ ? Reason(fd_.get(), asked) : nullptr;
  if (!reason) return;
  fd_.reset();
  g_set_error_literal(CollectError(error), G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED, reason);
}

HandedOverFile::~HandedOverFile() {
  struct stat opened = {};
  struct stat present = {};
  if (!fd_ || fstat(fd_.get(), &opened) != 0 || lstat(path_.c_str(), &present) != 0) return;
  if (opened.st_dev != present.st_dev || opened.st_ino != present.st_ino) return;
  unlink(path_.c_str());
}

UniqueFd OpenRegularFile(const std::string& path, int flags, GErrorPtr* error) {
  // Without O_NONBLOCK, opening a FIFO would wait for a writer.
  UniqueFd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags));
  struct stat info = {};
  if (!file || fstat(file.get(), &info) != 0) {
    const int code = errno;
    g_set_error(CollectError(error), G_FILE_ERROR, g_file_error_from_errno(code),
                "The picture cannot be read: %s", g_strerror(code));
    return {};
  }
  if (!S_ISREG(info.st_mode)) {
    g_set_error_literal(CollectError(error), G_IO_ERROR, G_IO_ERROR_NOT_REGULAR_FILE,
                        "The picture is not a regular file");
    return {};
  }
  return file;
}

std::string PathOfUri(const std::string& uri) {
  const GCharPtr path(g_filename_from_uri(uri.c_str(), nullptr, nullptr));
  return path ? path.get() : "";
}

}  // namespace kiv
