#ifndef SRC_CPP_LINUX_PROCESS_COMMAND_LINE_H_
#define SRC_CPP_LINUX_PROCESS_COMMAND_LINE_H_

#include <cstdint>
#include <optional>
#include <string>

namespace kiv {

// The command line as the kernel shows it, up to the first newline and to 1 MiB: arguments
// separated and ended by NULs; empty for a kernel thread or a zombie. No value when there is no
// such process.
std::optional<std::string> ReadCommandLine(int32_t pid);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PROCESS_COMMAND_LINE_H_
