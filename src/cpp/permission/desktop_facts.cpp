#include "desktop_facts.h"

#include <X11/Xlib.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gio/gunixfdlist.h>

#include <memory>

#include "../host_utils.h"
#include "../linux/active_window.h"
#include "../linux/bus_services.h"
#include "../linux/dbus_screenshot_names.h"
#include "../linux/deadline.h"
#include "../linux/session_bus.h"
#include "../unique_fd.h"

namespace kiv {

namespace {

constexpr Deadline::Milliseconds kPatience(2000);
constexpr int kPatienceWithService = 700;  // milliseconds

// GNOME Shell checks the area first, then the caller, and opens the file before it takes the
// picture.
constexpr char kImpossibleFile[] = "/dev/null/none";
constexpr int kNoScreen = -1;
constexpr char kNoScreenName[] = "none";

std::string ErrorName(const GError* error) {
  if (!error) return {};
  if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT)) return "timeout";
  const GCharPtr name(g_dbus_error_is_remote_error(error) ? g_dbus_error_get_remote_error(error)
                                                          : nullptr);
  return name ? name.get() : "failed";
}

std::string ErrorOf(const BusObject& object, const char* method, GVariant* parameters,
                    GUnixFDList* descriptors = nullptr) {
  GErrorPtr error;
  CallSessionBus(object, method, parameters, nullptr, &error, kPatienceWithService, descriptors);
  return ErrorName(error.get());
}

std::string ErrorOfScreenShot2() {
  const UniqueFd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
  const auto descriptors = AdoptGObject(g_unix_fd_list_new());
  GErrorPtr error;
  const int handle = g_unix_fd_list_append(descriptors.get(), nowhere.get(), CollectError(&error));
  if (handle < 0) return "failed";
  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  return ErrorOf(kScreenShot2, "CaptureScreen",
                 g_variant_new("(sa{sv}h)", kNoScreenName, &options, handle), descriptors.get());
}

struct CloseDisplay {
  void operator()(Display* display) const { XCloseDisplay(display); }
};

}  // namespace

std::optional<std::vector<bool>> FindOwned(const std::vector<std::string>& names) {
  const Deadline deadline = Deadline::In(kPatience);
  GErrorPtr error;
  const auto bus = ConnectSessionBus(&error);
  if (!bus) return std::nullopt;
  std::vector<bool> owned;
  for (const std::string& name : names) {
    const auto owner = OwnerOf(bus.get(), name.c_str(), deadline, &error);
    if (!owner) return std::nullopt;
    owned.push_back(!owner->empty());
  }
  return owned;
}

ServiceErrors TryServices() {
  GErrorPtr error;
  const auto bus = ConnectSessionBus(&error);
  if (!bus) return {"failed", "failed", "failed"};
  return {ErrorOf(kGnome, kGnomeDbusFunctionScreenshotArea,
                  g_variant_new("(iiiibs)", 0, 0, 1, 1, FALSE, kImpossibleFile)),
          ErrorOf(kKde, kKdeDbusFunctionScreenshotScreen, g_variant_new("(i)", kNoScreen)),
          ErrorOfScreenShot2()};
}

std::optional<DisplayFacts> ReadDisplay() {
  const std::unique_ptr<Display, CloseDisplay> display(XOpenDisplay(nullptr));
  if (!display) return std::nullopt;
  const int screen = DefaultScreen(display.get());
  const auto task = ReadActiveTask(display.get(), InternActiveWindowAtoms(display.get()));
  return DisplayFacts{DisplayWidth(display.get(), screen), DisplayHeight(display.get(), screen),
                      task.found, task.title};
}

std::string GtkVersion() {
  // GTK cannot be unloaded.
  void* gtk = dlopen("libgtk-3.so.0", RTLD_LAZY | RTLD_NODELETE);
  std::string version;
  for (const char* name :
       {"gtk_get_major_version", "gtk_get_minor_version", "gtk_get_micro_version"}) {
    const auto number = gtk ? reinterpret_cast<guint (*)()>(dlsym(gtk, name)) : nullptr;
    if (!number) return {};
    if (!version.empty()) version += '.';
    version += std::to_string(number());
  }
  return version;
}

int CountHostFunctions() {
  HostUtils functions;
  functions.Available();
  return !!functions.create_guid + !!functions.create_sha256_hash +
         !!functions.normalize_and_create_path + !!functions.write_file;
}

}  // namespace kiv
