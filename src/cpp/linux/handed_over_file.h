#ifndef SRC_CPP_LINUX_HANDED_OVER_FILE_H_
#define SRC_CPP_LINUX_HANDED_OVER_FILE_H_

#include <ctime>
#include <string>

#include "../unique_fd.h"
#include "glib_ptr.h"

namespace kiv {

// A file whose name a service has told, for us to read and delete. The name may be one that others
// can guess or put something at: only a regular file of this user's, with no other name and written
// since the service was asked, is opened, without following a link and without waiting. Deleted
// with the object, unless something else lies at its path by then; what cannot be opened is left
// alone.
class HandedOverFile {
 public:
  // Empty when it cannot be opened, with the reason in `error`, which does not tell the path.
  // `asked` is when the service was asked; a second of slack, since clocks are coarse.
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

// A regular file opened for reading, whoever owns it, without waiting; `flags` are more of open's.
// Empty when it cannot be opened, with the reason in `error`, which does not tell the path.
UniqueFd OpenRegularFile(const std::string& path, int flags, GErrorPtr* error);

// The local path that a file: URI names; empty when it names none.
std::string PathOfUri(const std::string& uri);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_HANDED_OVER_FILE_H_
