#ifndef SRC_CPP_LINUX_SCRIPT_PROCESS_H_
#define SRC_CPP_LINUX_SCRIPT_PROCESS_H_

#include <sys/types.h>

#include <string>

namespace kiv {

// Starts /bin/bash -c `script` in this process's session, group and environment, with /dev/null as
// its three standard streams and no other descriptor. The child's process id, or -1 with errno when
// none can be made. What goes wrong in the child ends it with status 0; a descriptor table that it
// cannot list is reported on standard error. The time it takes does not grow with this process.
pid_t StartScript(const std::string& script);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SCRIPT_PROCESS_H_
