// What strangers put into files: a compositor its picture, a process its command line.

#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "../../src/cpp/linux/picture_file.h"
#include "../../src/cpp/linux/process_command_line.h"
#include "fuzz.h"

namespace fuzz {

namespace {

// As of Linux 3.5, counted from one.
constexpr int kArgStartField = 48;

struct Arguments {
  int pid = 0;
  char* start = nullptr;
  size_t size = 0;
} victim;

// The module's documented form: the first line without trailing blanks, NULs kept.
std::string Expected(std::string text) {
  text.resize(std::min(text.find('\n'), text.size()));
  const size_t last = text.find_last_not_of(" \t");
  return last == std::string::npos ? text : text.substr(0, last + 1);
}

std::string FileOf(int pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace

void Picture(const uint8_t* data, size_t size) {
  static const int file = memfd_create("picture", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  Check(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size),
        "a file for the picture");
  kiv::GErrorPtr error;
  const auto picture = kiv::ReadPicture(path, &error);
  Check((picture == nullptr) == (error != nullptr), "a picture or a reason");
  if (!picture) return;
  const int64_t width = gdk_pixbuf_get_width(picture.get());
  Check(width * gdk_pixbuf_get_height(picture.get()) <= int64_t{1} << 27, "too many pixels");
}

void SetVictim(int pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string field;
  std::getline(file, field, ')');
  unsigned long start = 0;
  unsigned long end = 0;
  for (int i = 3; i < kArgStartField; ++i) file >> field;
  file >> start >> end;
  victim = {pid, reinterpret_cast<char*>(start), end - start};
  Check(victim.size > 0, "a process with a command line");
}

void CommandLine(const uint8_t* data, size_t size) {
  std::vector<uint8_t> bytes(victim.size);
  std::copy_n(data, std::min(size, bytes.size()), bytes.begin());
  // An input that fills the place and leaves the last NUL out makes the kernel read on.
  const iovec from = {bytes.data(), bytes.size()};
  const iovec to = {victim.start, victim.size};
  Check(process_vm_writev(victim.pid, &from, 1, &to, 1, 0) == static_cast<ssize_t>(bytes.size()),
        "a command line that can be written");
  Check(kiv::ReadCommandLine(victim.pid) == Expected(FileOf(victim.pid)), "another command line");
}

}  // namespace fuzz
