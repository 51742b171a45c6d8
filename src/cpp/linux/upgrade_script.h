#ifndef SRC_CPP_LINUX_UPGRADE_SCRIPT_H_
#define SRC_CPP_LINUX_UPGRADE_SCRIPT_H_

#include <sys/types.h>

#include <string>
#include <string_view>

namespace kiv {

enum class PackageFamily { kDebian, kRpm };

// What one run puts into the script. Both paths stand there unquoted, so both have to be words that
// no shell takes apart.
struct UpgradeRun {
  pid_t wait_for = 0;  // the installation starts when this process has ended
  std::string package;
  std::string log;
  bool relaunch = false;
};

// The script as it stands in the source tree.
std::string_view UpgradeTemplate(PackageFamily family);

// The script on one line, for bash -c.
std::string UpgradeScript(PackageFamily family, const UpgradeRun& run);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_UPGRADE_SCRIPT_H_
