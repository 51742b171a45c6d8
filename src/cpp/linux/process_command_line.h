#ifndef SRC_CPP_LINUX_PROCESS_COMMAND_LINE_H_
#define SRC_CPP_LINUX_PROCESS_COMMAND_LINE_H_

#include <cstdint>
#include <optional>
#include <string>

namespace kiv {

// Returns the kernel's command line of a process, up to the first newline and at most 1 MiB.
// Arguments are NUL-terminated. Empty for a kernel thread or zombie; nothing when there is no such
// process.
std::optional<std::string> ReadCommandLine(int32_t pid);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PROCESS_COMMAND_LINE_H_
