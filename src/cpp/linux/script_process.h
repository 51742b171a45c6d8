#ifndef SRC_CPP_LINUX_SCRIPT_PROCESS_H_
#define SRC_CPP_LINUX_SCRIPT_PROCESS_H_

#include <sys/types.h>

#include <string>

namespace kiv {

// Starts /bin/bash -c `script` in this process's session, group and environment, with /dev/null as
// its three standard streams and no other descriptor. Returns the child's process id, or -1 with
// errno. A child that fails exits with status 0; if it cannot list its descriptors, it says so on
// standard error. The call's duration does not grow with this process's memory.
pid_t StartScript(const std::string& script);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SCRIPT_PROCESS_H_
