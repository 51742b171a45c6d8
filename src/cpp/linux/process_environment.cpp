#include "process_environment.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sstream>

#include "../unique_fd.h"

namespace kiv {

namespace {

std::string ReadAll(int fd) {
  std::string text;
  char part[4096];
  for (ssize_t got = 0; (got = read(fd, part, sizeof part)) > 0;) text.append(part, got);
  return text;
}

}  // namespace

ProcessEnvironment ProcessEnvironment::Own() {
  ProcessEnvironment own;
  for (char** entry = environ; entry && *entry; ++entry) own.Add(*entry);
  return own;
}

std::optional<ProcessEnvironment> ProcessEnvironment::Of(pid_t pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/environ";
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat info = {};
  if (!file || fstat(file.get(), &info) != 0 || info.st_uid != geteuid()) return std::nullopt;
  std::istringstream entries(ReadAll(file.get()));
  ProcessEnvironment of_process;
  for (std::string entry; std::getline(entries, entry, '\0');) of_process.Add(entry);
  if (of_process.variables_.empty()) return std::nullopt;
  return of_process;
}

void ProcessEnvironment::Add(const std::string& entry) {
  const size_t equals = entry.find('=');
  if (equals == std::string::npos) return;
  variables_.emplace(entry.substr(0, equals), entry.substr(equals + 1));
}

std::string ProcessEnvironment::Get(const std::string& name) const {
  const auto found = variables_.find(name);
  return found == variables_.end() ? "" : found->second;
}

std::vector<std::string> ProcessEnvironment::ConfigurationFolders() const {
  return Folders("XDG_CONFIG_HOME", "/.config", "XDG_CONFIG_DIRS", "/etc/xdg");
}

std::vector<std::string> ProcessEnvironment::DataFolders() const {
  return Folders("XDG_DATA_HOME", "/.local/share", "XDG_DATA_DIRS", "/usr/local/share:/usr/share");
}

std::vector<std::string> ProcessEnvironment::Folders(const std::string& home,
                                                     const std::string& home_default,
                                                     const std::string& others,
                                                     const std::string& others_default) const {
  const std::string own = Get(home);
  std::vector<std::string> folders = {own.empty() ? Get("HOME") + home_default : own};
  const std::string list = Get(others);
  for (std::string& folder : SplitAtColons(list.empty() ? others_default : list)) {
    folders.push_back(std::move(folder));
  }
  return folders;
}

std::vector<std::string> SplitAtColons(const std::string& list) {
  std::vector<std::string> parts;
  std::istringstream stream(list);
  for (std::string part; std::getline(stream, part, ':');) {
    if (!part.empty()) parts.push_back(std::move(part));
  }
  return parts;
}

}  // namespace kiv
