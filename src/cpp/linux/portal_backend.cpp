#include "portal_backend.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "bus_services.h"
#include "glib_ptr.h"
#include "portal_names.h"

namespace kiv {

namespace {

constexpr char kFolder[] = "xdg-desktop-portal";
constexpr char kFolderVariable[] = "XDG_DESKTOP_PORTAL_DIR";
constexpr char kBackendSuffix[] = ".portal";
constexpr char kBackendGroup[] = "portal";
constexpr char kPreferredGroup[] = "preferred";
constexpr char kBackendInterface[] = "org.freedesktop.impl.portal.Screenshot";
constexpr uint32_t kFirstVersionThatAsks = 2;

using KeyFilePtr = std::unique_ptr<GKeyFile, FreeWith<g_key_file_unref>>;
using DirPtr = std::unique_ptr<GDir, FreeWith<g_dir_close>>;
using Texts = std::vector<std::string>;

bool Contains(const Texts& texts, const std::string& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

std::string LowerCase(const std::string& text) {
  const GCharPtr lower(g_ascii_strdown(text.c_str(), -1));
  return lower.get();
}

Texts ToTexts(const gchar* const* items) {
  Texts texts;
  for (; items && *items; ++items) texts.emplace_back(*items);
  return texts;
}

struct Backend {
  std::string name;  // the file's name without its suffix
  std::string bus_name;
  Texts desktops;  // in lower case
};

// The folders that the portal reads, first choice first.
Texts BackendFolders(const ProcessEnvironment& environment) {
  const std::string only = environment.Get(kFolderVariable);
  if (!only.empty()) return {only};
  Texts folders = environment.DataFolders();
  folders.emplace_back("/usr/share");
  for (std::string& folder : folders) folder.append("/").append(kFolder).append("/portals");
  return folders;
}

Texts ConfigurationFolders(const ProcessEnvironment& environment) {
  const std::string only = environment.Get(kFolderVariable);
  if (!only.empty()) return {only};
  Texts folders = environment.ConfigurationFolders();
  folders.emplace_back("/etc");
  for (std::string& folder : environment.DataFolders()) folders.push_back(std::move(folder));
  folders.emplace_back("/usr/share");
  for (std::string& folder : folders) folder.append("/").append(kFolder);
  return folders;
}

Texts CurrentDesktops(const ProcessEnvironment& environment) {
  Texts desktops;
  for (const std::string& name : SplitAtColons(environment.Get("XDG_CURRENT_DESKTOP"))) {
    // The name becomes part of a file name.
    if (name.find('/') == std::string::npos) desktops.push_back(LowerCase(name));
  }
  return desktops;
}

KeyFilePtr ReadKeyFile(const std::string& path) {
  KeyFilePtr file(g_key_file_new());
  if (!g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_NONE, nullptr))
    return nullptr;
  return file;
}

Texts ReadList(GKeyFile* file, const char* group, const char* key) {
  const std::unique_ptr<gchar*, FreeWith<g_strfreev>> items(
      g_key_file_get_string_list(file, group, key, nullptr, nullptr));
  return ToTexts(items.get());
}

// Back ends that take screenshots. A file hides files of the same name in later folders.
std::vector<Backend> InstalledBackends(const Texts& folders) {
  std::vector<Backend> backends;
  Texts seen;
  for (const std::string& folder : folders) {
    const DirPtr dir(g_dir_open(folder.c_str(), 0, nullptr));
    while (const char* file_name = dir ? g_dir_read_name(dir.get()) : nullptr) {
      if (!g_str_has_suffix(file_name, kBackendSuffix) || Contains(seen, file_name)) continue;
      const auto file = ReadKeyFile(folder + "/" + file_name);
      if (!file) continue;
      seen.emplace_back(file_name);
      const GCharPtr bus_name(
          g_key_file_get_string(file.get(), kBackendGroup, "DBusName", nullptr));
      if (!bus_name || !g_dbus_is_name(bus_name.get())) continue;
      if (!Contains(ReadList(file.get(), kBackendGroup, "Interfaces"), kBackendInterface)) continue;
      Backend backend = {file_name, bus_name.get(), {}};
      backend.name.resize(backend.name.size() - (sizeof kBackendSuffix - 1));
      for (const std::string& desktop : ReadList(file.get(), kBackendGroup, "UseIn")) {
        backend.desktops.push_back(LowerCase(desktop));
      }
      backends.push_back(std::move(backend));
    }
  }
  const auto by_name = [](const Backend& a, const Backend& b) { return a.name < b.name; };
  std::sort(backends.begin(), backends.end(), by_name);
  return backends;
}

// Returns the first configuration file with preferences, or null.
KeyFilePtr PortalsConfiguration(const Texts& folders, const Texts& desktops) {
  Texts names;
  for (const std::string& desktop : desktops) names.push_back("/" + desktop + "-portals.conf");
  names.emplace_back("/portals.conf");
  for (const std::string& folder : folders) {
    for (const std::string& name : names) {
      auto file = ReadKeyFile(folder + name);
      if (file && g_key_file_has_group(file.get(), kPreferredGroup)) return file;
    }
  }
  return nullptr;
}

const Backend* MadeFor(const Texts& desktops, const std::vector<Backend>& backends) {
  for (const std::string& desktop : desktops) {
    for (const Backend& backend : backends) {
      if (Contains(backend.desktops, desktop)) return &backend;
    }
  }
  return nullptr;
}

const Backend* FirstOf(const Texts& names, const Texts& desktops,
                       const std::vector<Backend>& backends) {
  for (const std::string& name : names) {
    if (name == "*") {
      const Backend* made_for = MadeFor(desktops, backends);
      if (made_for || backends.empty()) return made_for;
      return &backends.front();
    }
    for (const Backend& backend : backends) {
      if (backend.name == name) return &backend;
    }
  }
  return nullptr;
}

// KDE's back end has no version. The portal takes that for version 0.
bool LacksProperty(const GError* error) {
  return g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_PROPERTY) ||
         g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS);
}

}  // namespace

std::string ScreenshotBackend(const ProcessEnvironment& environment) {
  const Texts desktops = CurrentDesktops(environment);
  const std::vector<Backend> backends = InstalledBackends(BackendFolders(environment));
  const Backend* chosen = nullptr;
  if (const auto configuration =
          PortalsConfiguration(ConfigurationFolders(environment), desktops)) {
    for (const char* key : {kBackendInterface, "default"}) {
      if (chosen) break;
      chosen = FirstOf(ReadList(configuration.get(), kPreferredGroup, key), desktops, backends);
    }
  }
  // Portals before 1.17 read no such file. When no back end is for this desktop, they take any.
  if (!chosen) chosen = MadeFor(desktops, backends);
  if (!chosen && backends.size() == 1) chosen = &backends.front();
  return chosen ? chosen->bus_name : std::string();
}

bool BackendAsks(GDBusConnection* bus, const std::string& bus_name, const Deadline& deadline) {
  if (bus_name.empty()) return true;
  GErrorPtr error;
  const auto version =
      InterfaceVersion(bus, {bus_name.c_str(), kPortalPath, kBackendInterface}, deadline, &error);
  if (!version && LacksProperty(error.get())) return false;
  return !version || *version >= kFirstVersionThatAsks;
}

}  // namespace kiv
