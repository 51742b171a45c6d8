#include "process_command_line.h"

#include <cstdio>
#include <fstream>

namespace kiv {

namespace {

// A process can make its command line as long as its memory.
constexpr size_t kLongest = size_t{1} << 20;

}  // namespace

std::optional<std::string> ReadCommandLine(int32_t pid) {
  char path[128];
  std::snprintf(path, sizeof path, "/proc/%d/cmdline", pid);
  std::ifstream file(path);
  if (!file.is_open()) return std::nullopt;
  std::string line;
  for (char byte = 0; line.size() < kLongest && file.get(byte) && byte != '\n';) line += byte;
  const size_t last = line.find_last_not_of(" \t\n");
  if (last != std::string::npos) line.erase(last + 1);
  return line;
}

}  // namespace kiv
