#include "screenshot_permission.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <string_view>
#include <vector>

#include "bus_services.h"
#include "portal_names.h"
#include "session_bus.h"

namespace kiv {

namespace {

constexpr BusObject kStore = {"org.freedesktop.impl.portal.PermissionStore",
                              "/org/freedesktop/impl/portal/PermissionStore",
                              "org.freedesktop.impl.portal.PermissionStore"};
constexpr char kScreenshot[] = "screenshot";

bool IsAlphanumeric(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return g_ascii_isalnum(c); });
}

bool TakeSuffix(std::string_view* text, std::string_view suffix) {
  if (!text->ends_with(suffix)) return false;
  text->remove_suffix(suffix.size());
  return true;
}

// Removes the last `separator` and what follows it, if that consists of letters and digits.
bool TakeRandom(std::string_view* text, char separator) {
  const size_t at = text->rfind(separator);
  if (at == std::string_view::npos || at == 0 || !IsAlphanumeric(text->substr(at + 1)))
    return false;
  *text = text->substr(0, at);
  return true;
}

// systemd escapes a "-" in a name as "\x2d".
std::string Unescaped(std::string_view text) {
  std::string plain;
  while (!text.empty()) {
    const bool escaped = text.size() >= 4 && text.substr(0, 2) == "\\x" &&
                         g_ascii_isxdigit(text[2]) && g_ascii_isxdigit(text[3]);
    plain +=
        escaped
            ? static_cast<char>(g_ascii_xdigit_value(text[2]) * 16 + g_ascii_xdigit_value(text[3]))
            : text.front();
    text.remove_prefix(escaped ? 4 : 1);
  }
  return plain;
}

std::string IdOfUnit(std::string_view unit) {
  constexpr std::string_view kPrefix = "app-";
  if (!unit.starts_with(kPrefix)) return {};
  std::string_view id = unit.substr(kPrefix.size());
  if (TakeSuffix(&id, ".scope")) {
    if (!TakeRandom(&id, '-')) return {};
  } else if (TakeSuffix(&id, ".service")) {
    if (!TakeRandom(&id, '@')) TakeSuffix(&id, "-autostart");
  } else {
    return {};
  }
  const size_t launcher = id.find('-');
  if (launcher != std::string_view::npos && launcher > 0 && launcher + 1 < id.size() &&
      IsAlphanumeric(id.substr(0, launcher))) {
    id.remove_prefix(launcher + 1);
  }
  return Unescaped(id);
}

// Returns the control group's path in systemd's hierarchy, unified or named.
std::string SystemdPath(const std::string& cgroups) {
  std::string path;
  std::istringstream lines(cgroups);
  for (std::string line; std::getline(lines, line);) {
    for (const std::string_view start : {"0::", "1:name=systemd:"}) {
      if (line.starts_with(start)) path = line.substr(start.size());
    }
  }
  return path;
}

Permission FromText(const gchar* text) {
  const std::string_view value = text;
  if (value == "yes") return Permission::kGranted;
  if (value == "no") return Permission::kDenied;
  return value == "ask" ? Permission::kAsk : Permission::kUnset;
}

// `entries` has the type a{sas}.
Permission PermissionOf(const std::string& app_id, GVariant* entries) {
  gchar** raw_values = nullptr;
  if (!g_variant_lookup(entries, app_id.c_str(), "^as", &raw_values)) return Permission::kUnset;
  const std::unique_ptr<gchar*, FreeWith<g_strfreev>> values(raw_values);
  return g_strv_length(raw_values) == 1 ? FromText(raw_values[0]) : Permission::kUnset;
}

bool HasDesktopFile(const std::string& id, const std::vector<std::string>& data_folders) {
  return std::any_of(data_folders.begin(), data_folders.end(), [&](const std::string& folder) {
    return access((folder + "/applications/" + id + ".desktop").c_str(), F_OK) == 0;
  });
}

// Portal 1.17 introduced version 2 of the Settings interface.
bool PortalIsOlderThan117(GDBusConnection* bus, const Deadline& deadline) {
  GErrorPtr error;
  const auto version = InterfaceVersion(
      bus, {kPortalName, kPortalPath, "org.freedesktop.portal.Settings"}, deadline, &error);
  return version && *version < 2;
}

// The ids under which the portal may store this process's permission; the empty id stands for all
// programs without one. Portals before 1.17 accept only ids with two dots, those from 1.23 on only
// ids with a .desktop file.
std::vector<std::string> PossibleIds(GDBusConnection* bus, const ProcessEnvironment& portal,
                                     const Deadline& deadline) {
  std::ifstream file("/proc/self/cgroup");
  const std::string id = IdOfUserUnit({std::istreambuf_iterator<char>(file), {}});
  if (id.empty()) return {id};
  if (std::count(id.begin(), id.end(), '.') < 2 && PortalIsOlderThan117(bus, deadline)) return {""};
  if (HasDesktopFile(id, portal.DataFolders())) return {id};
  return {id, ""};
}

}  // namespace

std::optional<Permission> StoredPermission(GDBusConnection* bus, const ProcessEnvironment& portal,
                                           const Deadline& deadline, GErrorPtr* error) {
  const GVariantPtr reply =
      CallSessionBus(bus, kStore, "Lookup", g_variant_new("(ss)", kScreenshot, kScreenshot),
                     "(a{sas}v)", error, deadline.Remaining());
  if (!reply) {
    const bool answered = g_dbus_error_is_remote_error(error->get()) ||
                          g_error_matches(error->get(), G_IO_ERROR, G_IO_ERROR_INVALID_DATA);
    if (!answered) return std::nullopt;
    error->reset();
    return Permission::kUnset;
  }
  const GVariantPtr entries(g_variant_get_child_value(reply.get(), 0));
  std::set<Permission> found;
  for (const std::string& id : PossibleIds(bus, portal, deadline)) {
    found.insert(PermissionOf(id, entries.get()));
  }
  // A snapshot must not show a question, whichever id the portal uses.
  return found.size() == 1 ? *found.begin() : Permission::kUnset;
}

std::string IdOfUserUnit(const std::string& cgroups) {
  bool in_user_manager = false;
  std::istringstream units(SystemdPath(cgroups));
  for (std::string unit; std::getline(units, unit, '/');) {
    if (in_user_manager && !unit.empty() && !std::string_view(unit).ends_with(".slice")) {
      return IdOfUnit(unit);
    }
    if (unit.starts_with("user@") && unit.ends_with(".service")) in_user_manager = true;
  }
  return {};
}

}  // namespace kiv
