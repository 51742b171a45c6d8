#ifndef SRC_CPP_LINUX_UPGRADE_LAUNCHER_H_
#define SRC_CPP_LINUX_UPGRADE_LAUNCHER_H_

#include <string>

namespace kiv {

// Starts the script that installs the package once this process has ended, and then the application
// when `relaunch` is true. 0, or -1 when the path is refused or no process can be made; a log line
// says why. Does not wait for the script: one that ends before this process stays a zombie until
// then.
int LaunchUpgrade(const std::string& path, bool relaunch);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_UPGRADE_LAUNCHER_H_
