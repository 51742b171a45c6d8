#ifndef SRC_CPP_LINUX_PROCESS_ENVIRONMENT_H_
#define SRC_CPP_LINUX_PROCESS_ENVIRONMENT_H_

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kiv {

// A copy of a process's environment variables.
class ProcessEnvironment {
 public:
  // This process's, which JavaScript may change: main thread only.
  static ProcessEnvironment Own();
  // Those that a process of the same user was started with; nothing when they cannot be read.
  static std::optional<ProcessEnvironment> Of(pid_t pid);

  // Empty when there is none.
  std::string Get(const std::string& name) const;
  // The base folders of the XDG specification, first choice first.
  std::vector<std::string> ConfigurationFolders() const;
  std::vector<std::string> DataFolders() const;

 private:
  void Add(const std::string& entry);
  std::vector<std::string> Folders(const std::string& home, const std::string& home_default,
                                   const std::string& others,
                                   const std::string& others_default) const;

  std::map<std::string, std::string> variables_;
};

// The parts between the colons that are not empty.
std::vector<std::string> SplitAtColons(const std::string& list);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PROCESS_ENVIRONMENT_H_
