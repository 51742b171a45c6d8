#ifndef SRC_CPP_LINUX_UPGRADE_SCRIPT_H_
#define SRC_CPP_LINUX_UPGRADE_SCRIPT_H_

#include <sys/types.h>

#include <string>
#include <string_view>

namespace kiv {

enum class PackageFamily { kDebian, kRpm };

// Values inserted into the script. The script does not quote the two paths, so they must contain
// nothing that a shell splits or expands.
struct UpgradeRun {
  pid_t wait_for = 0;  // the installation starts when this process has exited
  std::string package;
  std::string log;
  bool relaunch = false;
};

// The script's template, as in the source tree.
std::string_view UpgradeTemplate(PackageFamily family);

// The script on one line, for bash -c.
std::string UpgradeScript(PackageFamily family, const UpgradeRun& run);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_UPGRADE_SCRIPT_H_
