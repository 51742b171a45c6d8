#include "upgrade_script.h"

#include <unistd.h>

#include <algorithm>

#include "upgrade_script_templates.h"

namespace kiv {

namespace {

// The package's name and the application's command.
constexpr char kBinaryAppName[] = "brenik";

// Replaces every ${name}. Does not expand inserted text again.
template <typename String>
void string_subst(String& text, const char* name, const String& value) {
  const String pattern = String("${") + name + "}";
  for (size_t at = text.find(pattern); at != String::npos;
       at = text.find(pattern, at + value.size())) {
    text.replace(at, pattern.size(), value);
  }
}

template <size_t Size>
std::string_view Whole(const char (&text)[Size]) {
  return {text, Size};
}

}  // namespace

std::string_view UpgradeTemplate(PackageFamily family) {
  return family == PackageFamily::kDebian ? Whole(src_cpp_linux_upgrade_script_template_deb)
                                          : Whole(src_cpp_linux_upgrade_script_template_rh);
}

std::string UpgradeScript(PackageFamily family, const UpgradeRun& run) {
  std::string script(UpgradeTemplate(family));
  std::replace(script.begin(), script.end(), '\r', ' ');
  std::replace(script.begin(), script.end(), '\n', ' ');
  if (run.relaunch) script.append("; ").append(kBinaryAppName);
  string_subst(script, "pid_wait_for", std::to_string(run.wait_for));
  string_subst(script, "upgradePath", run.package);
  string_subst(script, "kBinaryAppName", std::string(kBinaryAppName));
  string_subst(script, "debug_output_reroute", run.log);
  string_subst(script, "uid_gid", std::to_string(getuid()) + ":" + std::to_string(getgid()));
  return script;
}

}  // namespace kiv
