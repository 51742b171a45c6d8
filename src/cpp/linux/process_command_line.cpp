#include "process_command_line.h"

#include <cstdio>
#include <fstream>

namespace kiv {

std::optional<std::string> ReadCommandLine(int32_t pid) {
  char path[128];
  std::snprintf(path, sizeof path, "/proc/%d/cmdline", pid);
  std::ifstream file(path);
  if (!file.is_open()) return std::nullopt;
  std::string line;
  std::getline(file, line);
  const size_t last = line.find_last_not_of(" \t\n");
  if (last != std::string::npos) line.erase(last + 1);
  return line;
}

}  // namespace kiv
