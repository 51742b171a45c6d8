#include "kwin_screenshot2.h"

#include <fcntl.h>
#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "../unique_fd.h"
#include "bus_services.h"
#include "dbus_screenshot_names.h"
#include "raw_picture.h"
#include "session_bus.h"

namespace kiv {

namespace {

constexpr char kCaptureWorkspace[] = "CaptureWorkspace";
constexpr char kCaptureActiveScreen[] = "CaptureActiveScreen";

struct Pipe {
  UniqueFd reading;
  UniqueFd writing;
};

Pipe OpenPipe(GErrorPtr* error) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) {
    const int code = errno;
    g_set_error_literal(CollectError(error), G_IO_ERROR, g_io_error_from_errno(code),
                        g_strerror(code));
  }
  return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

// Builds the arguments. `handle` is the pipe's index in the message's descriptor list.
GVariant* Parameters(int handle) {
  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&options, "{sv}", "native-resolution", g_variant_new_boolean(TRUE));
  // Newer versions of KWin hide them by default.
  g_variant_builder_add(&options, "{sv}", "hide-caller-windows", g_variant_new_boolean(FALSE));
  return g_variant_new("(a{sv}h)", &options, handle);
}

// Asks KWin to write a picture into the pipe and returns its description. Closes our copy of the
// writing end; while it was open, we could not notice that KWin stops early.
GVariantPtr RequestPicture(CompositorArea area, UniqueFd writing, const Deadline& deadline,
                           GErrorPtr* error) {
  const auto descriptors = AdoptGObject(g_unix_fd_list_new());
  const int handle = g_unix_fd_list_append(descriptors.get(), writing.get(), CollectError(error));
  if (handle < 0) return nullptr;
  const char* method =
      area == CompositorArea::kWorkspace ? kCaptureWorkspace : kCaptureActiveScreen;
  return CallSessionBus(kScreenShot2, method, Parameters(handle), "(a{sv})", error,
                        deadline.Remaining(), descriptors.get());
}

}  // namespace

GObjectPtr<GdkPixbuf> CaptureThroughKwin(CompositorArea area, const Deadline& deadline,
                                         GErrorPtr* error) {
  static AbsenceMemory absence;
  const auto bus = ConnectSessionBus(error);
  if (!bus) return nullptr;
  const auto kwin = OwnerOf(bus.get(), kKdeDbusBusName, deadline, error);
  if (!kwin || kwin->empty()) return nullptr;
  // KWin takes this name when it loads the effect, possibly later.
  const auto service = OwnerOf(bus.get(), kScreenShot2.interface, deadline, error);
  if (!service) return nullptr;
  const std::string owners = *kwin + " " + *service;
  if (absence.Knows(owners)) return nullptr;
  auto [reading, writing] = OpenPipe(error);
  if (!reading) return nullptr;
  const GVariantPtr reply = RequestPicture(area, std::move(writing), deadline, error);
  if (!reply && SaysAbsent(error->get())) {
    absence.Note(owners);
    error->reset();
  }
  if (!reply) return nullptr;
  const GVariantPtr description(g_variant_get_child_value(reply.get(), 0));
  const auto shape = ReadRawPictureShape(description.get(), error);
  if (!shape) return nullptr;
  return ReadRawPicture(reading.get(), *shape, deadline, error);
}

}  // namespace kiv
