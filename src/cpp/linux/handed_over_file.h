#ifndef SRC_CPP_LINUX_HANDED_OVER_FILE_H_
#define SRC_CPP_LINUX_HANDED_OVER_FILE_H_

#include <ctime>
#include <string>

#include "../unique_fd.h"
#include "glib_ptr.h"

namespace kiv {

// A file that a service leaves to the caller to read and delete. Other users may guess its name, so
// only a regular file of this user's is opened that has one name and was written after the request.
// Opening follows no link and does not block. The destructor deletes the file unless its path
// names another file by then.
class HandedOverFile {
 public:
  // Empty, with the reason in `error`, when the file cannot be opened. `error` never contains the
  // path. `asked` is the time of the request; a file may be one second older, as clocks are coarse.
  HandedOverFile(std::string path, time_t asked, GErrorPtr* error);
  ~HandedOverFile();
  HandedOverFile(const HandedOverFile&) = delete;
  HandedOverFile& operator=(const HandedOverFile&) = delete;

  explicit operator bool() const { return static_cast<bool>(fd_); }
  int fd() const { return fd_.get(); }

 private:
  std::string path_;
  UniqueFd fd_;
};

// Opens a regular file of any owner for reading, without blocking. `flags` are additional flags of
// open(). Returns an empty owner with the reason, without the path, in `error`.
UniqueFd OpenRegularFile(const std::string& path, int flags, GErrorPtr* error);

// Returns the local path of a file: URI, or an empty string.
std::string PathOfUri(const std::string& uri);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_HANDED_OVER_FILE_H_
