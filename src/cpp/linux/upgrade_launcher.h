#ifndef SRC_CPP_LINUX_UPGRADE_LAUNCHER_H_
#define SRC_CPP_LINUX_UPGRADE_LAUNCHER_H_

#include <string>

namespace kiv {

// Starts the script that waits for this process to exit, installs the package and, if `relaunch`,
// starts the application. Returns 0, or -1 after logging why the path was rejected or no process
// could be created. Does not wait for the script: if it exits before this process, it stays a
// zombie until then.
int LaunchUpgrade(const std::string& path, bool relaunch);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_UPGRADE_LAUNCHER_H_
