#include "snap_calls.h"

#include <memory>
#include <optional>
#include <string>

#include "addon.h"
#include "conversions.h"
#include "host_utils.h"
#include "js_callback.h"
#include "log_request_ids.h"
#include "logging.h"
#include "snap_completion.h"
#include "snap_result.h"

namespace kiv {

namespace {

constexpr char kSnapTypeDesktop[] = "desktop";
constexpr char kSnapTypeDisplay[] = "display";
constexpr char kSnapTypeSelection[] = "selection";
constexpr char kScreenPrefix[] = "Screen";
constexpr char kThumbnailSuffix[] = "_Thumbnail";
constexpr char kSnapImageTypeJpeg[] = ".jpg";
constexpr char kSnapImageTypePNG[] = ".png";
constexpr char kInvalidSyncType[] = "Invalid snap type. Pass either \"desktop\", or \"display\".";

constexpr char kInvalidAsyncType[] =
    "Invalid snap type. Pass one of \"desktop\", \"display\" or \"selection\".";

HostUtils kivo_helper;

struct SavedFiles {
  std::string image;
  std::string thumbnail;
  std::string hash;
};

// Writes both pictures through the host. Returns nothing when a write fails; files that were
// already written stay.
std::optional<SavedFiles> SaveFiles(const ScreenSnap& snap, std::string folder, bool jpeg) {
  const char* extension = jpeg ? kSnapImageTypeJpeg : kSnapImageTypePNG;
  std::string guid;
  kivo_helper.create_guid(guid);
  kivo_helper.normalize_and_create_path(folder);
  SavedFiles files;
  const std::string stem = folder + kScreenPrefix + guid;
  files.image = stem + extension;
  files.thumbnail = stem + kThumbnailSuffix + extension;
  const ScreenSnap::image_data& image = snap.image;
  const ScreenSnap::image_data& thumbnail = snap.thumbnail;
  if (!kivo_helper.write_file(files.image, image.buffer.get(), image.size)) return std::nullopt;
  if (!kivo_helper.write_file(files.thumbnail, thumbnail.buffer.get(), thumbnail.size)) {
    return std::nullopt;
  }
  kivo_helper.create_sha256_hash(files.hash, image.buffer.get(), image.size);
  return files;
}

// An exception of the host's functions counts as a failed write.
std::optional<SavedFiles> TrySaveFiles(const ScreenSnap& snap, const std::string& folder,
                                       bool jpeg) {
  try {
    return SaveFiles(snap, folder, jpeg);
  } catch (...) {
    return std::nullopt;
  }
}

// Returns the request's context, which the completion deletes. It is never null, because null means
// "no request" to the overlay. A non-function argument gives an empty callback.
void* RequestContext(const CallInfo& info) {
  auto callback = FunctionArgument(info, 1);
  if (!callback) callback = std::make_unique<Nan::Callback>();
  return callback.release();
}

}  // namespace

void GetScreenSnap(const CallInfo& info) {
  const EntryScope entry;
  const auto type = StringArgument(info, 0);
  if (!type) return;
  const bool jpeg = BooleanArgument(info, 1);
  const bool desktop = *type == kSnapTypeDesktop;
  if (!desktop && *type != kSnapTypeDisplay) return Nan::ThrowError(kInvalidSyncType);

  // Convert before the capture, so that a conversion that throws captures nothing.
  std::optional<std::string> folder;
  if (info.Length() >= 3 && kivo_helper.Available()) {
    folder = StringArgument(info, 2);
    if (!folder) return;
  }
  ScreenSnap snap = TakeSnap(desktop ? Agent().SnapWholeDesktop(jpeg, true)
                                     : Agent().SnapActiveDisplay(jpeg, true));

  const v8::Local<v8::Object> result = Nan::New<v8::Object>();
  std::optional<SavedFiles> files;
  if (folder && !folder->empty()) files = TrySaveFiles(snap, *folder, jpeg);
  if (files) {
    SetKey(result, "ScreenFullPath", files->image);
    SetKey(result, "ThumbnailFullPath", files->thumbnail);
    SetKey(result, "screen_hash", files->hash);
  } else {
    SetPictures(result, &snap);
  }
  SetDescription(result, snap);
  info.GetReturnValue().Set(result);
}

void GetScreenSnapAsync(const CallInfo& info) {
  const EntryScope entry;
  LogMessage(LogMessage::debug).stream() << kLoggingRequestId_GetScreenSnapAsync;
  const auto type = StringArgument(info, 0);
  if (!type) return;
  if (!Agent().SnapGuardIsFree()) {
    LogMessage(LogMessage::info).stream() << kLoggingRequestId_GetScreenSnapAsync << ":" << *type
                                          << ":" << kLoggingRequestId_OnScreenSnapAsyncBusy;
    return;
  }
  const bool desktop = *type == kSnapTypeDesktop;
  bool known = true;
  if (desktop || *type == kSnapTypeDisplay) {
    void* context = RequestContext(info);
    ScreenSnap* snap =
        desktop ? Agent().SnapWholeDesktop(false, false) : Agent().SnapActiveDisplay(false, false);
    OnScreenSnapCompleted(kSnapCompleted, snap, context, false);
  } else if (*type == kSnapTypeSelection) {
    Agent().TakeSnapGuard();
    Agent().SnapSelection(RequestContext(info));
  } else {
    known = false;
  }
  LogMessage(LogMessage::debug).stream()
      << kLoggingRequestId_GetScreenSnapAsync << ":" << *type << ":" << kLoggingRequestId_End;
  // Throw last: the logger cannot be called while an exception is pending.
  if (!known) Nan::ThrowError(kInvalidAsyncType);
}

}  // namespace kiv
