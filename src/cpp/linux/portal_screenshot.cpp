#include "portal_screenshot.h"

#include <optional>
#include <string>
#include <utility>

#include "handed_over_file.h"
#include "late_pictures.h"
#include "picture_file.h"
#include "portal_access.h"
#include "portal_request.h"
#include "private_context.h"
#include "session_bus.h"

namespace kiv {

namespace {

constexpr Deadline::Milliseconds kStart(5000);
constexpr uint32_t kCancelled = 1;

constexpr char kForgetAnswer[] =
    "gdbus call --session --dest org.freedesktop.impl.portal.PermissionStore --object-path "
    "/org/freedesktop/impl/portal/PermissionStore --method "
    "org.freedesktop.impl.portal.PermissionStore.Delete screenshot screenshot";

void SetError(GErrorPtr* error, const std::string& message) {
  g_set_error_literal(CollectError(error), G_IO_ERROR, G_IO_ERROR_FAILED, message.c_str());
}

std::string Remedy(Permission permission) {
  switch (permission) {
    case Permission::kDenied:
      return std::string(
                 "Screenshots were denied; allow them in the desktop's privacy settings, "
                 "or have it forget the answer with: ") +
             kForgetAnswer;
    case Permission::kAsk:
      return std::string(
                 "The desktop would ask each time; allow screenshots in its privacy "
                 "settings, or have it forget that with: ") +
             kForgetAnswer;
    default:
      return "Nobody has allowed screenshots yet; ask() of kiv_native/permission brings up the "
             "question";
  }
}

// Returns the portal's answer, or nothing when the deadline passes first.
std::optional<PortalAnswer> AskPortal(GDBusConnection* bus, const std::string& owner,
                                      const Deadline& deadline) {
  PrivateContext context;
  const auto late = AdoptGObject(g_cancellable_new());
  context.CancelAfter(deadline.Remaining(), late.get());
  std::optional<PortalAnswer> answer;
  {
    PortalRequest request(bus, owner, [&](PortalAnswer ended) { answer = std::move(ended); });
    while (!answer && !g_cancellable_is_cancelled(late.get())) context.Iterate();
    if (!answer) context.Outside([&] { DeletePictureWhenItComes(request); });
  }
  context.Drain();
  return answer;
}

// Returns why an answer has no picture, or null when it has one.
const char* Reason(const PortalAnswer& answer) {
  if (answer.code == kCancelled) return "The screenshot was cancelled";
  if (answer.code != 0) return "The portal refuses, or its back end fails";
  return PathOfUri(answer.uri).empty() ? "The portal's answer names no file" : nullptr;
}

// Returns the decoded picture and deletes its file.
GObjectPtr<GdkPixbuf> ReadAnswer(PortalAnswer answer, GErrorPtr* error) {
  if (answer.error) {
    *error = std::move(answer.error);
    return nullptr;
  }
  if (const char* reason = Reason(answer)) {
    SetError(error, reason);
    return nullptr;
  }
  const HandedOverFile file(PathOfUri(answer.uri), answer.asked, error);
  return file ? DecodePicture(file.fd(), error) : nullptr;
}

}  // namespace

GObjectPtr<GdkPixbuf> CaptureThroughPortal(const Deadline& deadline, GErrorPtr* error) {
  static bool started = false;
  static AbsenceMemory absence;
  const auto bus = ConnectSessionBus(error);
  if (!bus) return nullptr;
  const Deadline limit = std::exchange(started, true) ? deadline : deadline.ExtendedBy(kStart);
  const auto access =
      FindPortalAccess(bus.get(), ProcessEnvironment::Own(), limit, &absence, error);
  if (!access || access->owner.empty()) return nullptr;
  if (!access->TakesWithoutQuestion()) {
    SetError(error, Remedy(access->permission));
    return nullptr;
  }
  auto answer = AskPortal(bus.get(), access->owner, limit);
  if (answer) return ReadAnswer(std::move(*answer), error);
  SetError(error, "The portal does not answer");
  return nullptr;
}

}  // namespace kiv
