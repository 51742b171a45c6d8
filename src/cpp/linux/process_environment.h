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
  // Copies this process's environment. Main thread only, because JavaScript may change it.
  static ProcessEnvironment Own();
  // Copies the environment with which a process of the same user was started, or returns nothing.
  static std::optional<ProcessEnvironment> Of(pid_t pid);

  // Returns an empty string for a variable that is not set.
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

// Returns the parts between the colons, without empty ones.
std::vector<std::string> SplitAtColons(const std::string& list);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PROCESS_ENVIRONMENT_H_
