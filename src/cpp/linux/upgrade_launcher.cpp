#include "upgrade_launcher.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <vector>

#include "../log_request_ids.h"
#include "../logging.h"
#include "script_process.h"
#include "upgrade_script.h"

namespace kiv {

namespace {

constexpr size_t kSuffixLength = 4;

bool IsLetterOrDigit(unsigned char byte) {
  if (byte >= '0' && byte <= '9') return true;
  return (byte | 0x20) >= 'a' && (byte | 0x20) <= 'z';
}

bool IsPlain(unsigned char byte) {
  if (byte > 0x7f || IsLetterOrDigit(byte)) return true;
  return byte != 0 && std::strchr("/._-+~:@%=,", byte) != nullptr;
}

// A shell expands "~" where a word begins and, in an assignment, after ":" and "=".
bool StartsExpansion(unsigned char before, unsigned char byte) {
  return byte == '~' && !IsLetterOrDigit(before);
}

// The script does not quote paths and may run with an administrator's rights. Accept nothing that a
// shell splits or expands, or that a command could read as an option.
bool IsPlainPath(const std::string& path) {
  if (path.empty() || path.front() == '-' || path.front() == '~') return false;
  return std::all_of(path.begin(), path.end(), IsPlain) &&
         std::adjacent_find(path.begin(), path.end(), StartsExpansion) == path.end();
}

std::optional<PackageFamily> FamilyOf(const std::string& path) {
  std::string suffix = path.substr(path.size() - kSuffixLength);
  std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  if (suffix == ".deb") return PackageFamily::kDebian;
  if (suffix == ".rpm") return PackageFamily::kRpm;
  return std::nullopt;
}

// Empty when unknown.
std::string HomeFolder() {
  const char* home = std::getenv("HOME");
  if (home && *home) return home;
  std::vector<char> buffer(size_t{64} << 10);
  passwd entry = {};
  passwd* found = nullptr;
  getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
  return found && found->pw_dir ? found->pw_dir : "";
}

std::string LogFileName() {
  const time_t now = std::time(nullptr);
  tm local = {};
  localtime_r(&now, &local);
  char name[64];
  const size_t length = std::strftime(name, sizeof name, "brenik_%Y%m%d_%H%M%S.log", &local);
  return std::string(name, length);
}

// Creates the log's folders. If that fails, the script's own writes report it.
std::string PrepareLogPath(std::string path) {
  for (const char* folder : {"/.Brenik", "/Brenik", "/Logs"}) {
    path += folder;
    mkdir(path.c_str(), 0755);
  }
  return path + "/" + LogFileName();
}

int Refuse(const char* reason) {
  LogMessage(LogMessage::error).stream() << reason;
  return -1;
}

int Refuse(const char* reason, int error) {
  LogMessage(LogMessage::error).stream() << reason << ":" << error;
  return -1;
}

}  // namespace

int LaunchUpgrade(const std::string& path, bool relaunch) {
  if (path.size() < kSuffixLength || !IsPlainPath(path)) {
    return Refuse(kLoggingRequestId_UpgradeFileNameError);
  }
  struct stat info = {};
  if (stat(path.c_str(), &info) != 0) return Refuse(kLoggingRequestId_UpgradeFileInfoError, errno);
  if (!S_ISREG(info.st_mode)) return Refuse(kLoggingRequestId_UpgradeNotFileError);
  const auto family = FamilyOf(path);
  if (!family) return Refuse(kLoggingRequestId_UpgradePackageExtentionError);
  const std::string home = HomeFolder();
  if (!IsPlainPath(home)) return Refuse(kLoggingRequestId_UpgradeFileNameError);

  UpgradeRun run;
  run.wait_for = getpid();
  run.package = path;
  run.log = PrepareLogPath(home);
  run.relaunch = relaunch;
  const pid_t pid = StartScript(UpgradeScript(*family, run));
  if (pid == -1) return Refuse(kLoggingRequestId_StartProcessError, errno);
  LogMessage(LogMessage::info).stream() << kLoggingRequestId_StartProcess << ":" << pid;
  return 0;
}

}  // namespace kiv
