#include "portal_screenshot.h"

#include <optional>
#include <string>
#include <utility>

#include "handed_over_file.h"
#include "picture_file.h"
#include "portal_access.h"
#include "portal_backend.h"
#include "portal_request.h"
#include "private_context.h"
#include "session_bus.h"

namespace kiv {

namespace {

constexpr Deadline::Milliseconds kStart(5000);
constexpr uint32_t kCancelled = 1;

#define KIV_FORGET_ANSWER                                                                  \
  "gdbus call --session --dest org.freedesktop.impl.portal.PermissionStore --object-path " \
  "/org/freedesktop/impl/portal/PermissionStore --method "                                 \
  "org.freedesktop.impl.portal.PermissionStore.Delete screenshot screenshot"

const char* Remedy(Permission permission) {
  switch (permission) {
    case Permission::kDenied:
      return "Screenshots were denied; allow them in the desktop's privacy settings, or have it "
             "forget the answer with: " KIV_FORGET_ANSWER;
    case Permission::kAsk:
      return "The desktop would ask each time; allow screenshots in its privacy settings, or have "
             "it forget that with: " KIV_FORGET_ANSWER;
    default:
      return "Nobody has allowed screenshots yet; ask() of kiv_native/permission brings up the "
             "question";
  }
}

void SetError(GErrorPtr* error, const char* message) {
  g_set_error_literal(CollectError(error), G_IO_ERROR, G_IO_ERROR_FAILED, message);
}

// The end of the request, or nothing when the deadline comes first.
std::optional<PortalAnswer> AskPortal(GDBusConnection* bus, const std::string& owner,
                                      const Deadline& deadline) {
  PrivateContext context;
  const auto late = AdoptGObject(g_cancellable_new());
  context.CancelAfter(deadline.Remaining(), late.get());
  std::optional<PortalAnswer> answer;
  {
    PortalRequest request(bus, owner, [&](PortalAnswer ended) { answer = std::move(ended); });
    while (!answer && !g_cancellable_is_cancelled(late.get())) context.Iterate();
    if (!answer) request.Close();
  }
  context.Drain();
  return answer;
}

// The path of the picture's file; empty with an error.
std::string ReadAnswer(std::optional<PortalAnswer> answer, GErrorPtr* error) {
  if (!answer) return SetError(error, "The portal does not answer"), "";
  if (answer->error) return *error = std::move(answer->error), "";
  if (answer->code == kCancelled) return SetError(error, "The screenshot was cancelled"), "";
  if (answer->code != 0) return SetError(error, "The portal refuses, or its back end fails"), "";
  std::string path = PathOfUri(answer->uri);
  if (path.empty()) SetError(error, "The portal's answer names no file");
  return path;
}

}  // namespace

GObjectPtr<GdkPixbuf> CaptureThroughPortal(const Deadline& deadline, GErrorPtr* error) {
  static bool started = false;
  static auto* const memory = new PortalMemory();
  const Deadline limit = std::exchange(started, true) ? deadline : deadline.ExtendedBy(kStart);
  const auto access = FindPortalAccess(ScreenshotBackend(), limit, memory, error);
  if (!access || access->owner.empty()) return nullptr;
  if (!access->TakesWithoutQuestion()) return SetError(error, Remedy(access->permission)), nullptr;
  // Leaves a descriptor for the private context.
  const auto bus = ConnectSessionBus(error);
  if (!bus) return nullptr;
  const std::string path = ReadAnswer(AskPortal(bus.get(), access->owner, limit), error);
  if (path.empty()) return nullptr;
  const HandedOverFile file(path, error);
  return file ? DecodePicture(file.fd(), error) : nullptr;
}

}  // namespace kiv
