// Whole-desktop and active-display snapshots, and the start of a selection.

#include "../log_request_ids.h"
#include "../logging.h"
#include "../screen_snap.h"
#include "active_window.h"
#include "dbus_screenshot.h"
#include "desktop_session_agent_linux.h"
#include "gdk_capture.h"
#include "glib_ptr.h"
#include "image_encoder.h"
#include "user_selection_helper_linux.h"

namespace kiv {

namespace {

constexpr uint32_t kMaxWidth = 1920;
constexpr uint32_t kMaxHeight = 1080;

// Fits a snapshot's size into the limit, width first; true when it had to change.
bool LimitSize(ScreenSnap* snap) {
  bool reduced = false;
  if (snap->width > kMaxWidth) {
    snap->height = snap->height * kMaxWidth / snap->width;
    snap->width = kMaxWidth;
    reduced = true;
  }
  if (snap->height > kMaxHeight) {
    snap->width = snap->width * kMaxHeight / snap->height;
    snap->height = kMaxHeight;
    reduced = true;
  }
  return reduced;
}

// A compositor gives the whole desktop, whatever was asked for. `error` is for a session that has
// no known compositor. The backend and its file are gone before the encoding.
GObjectPtr<GdkPixbuf> CaptureThroughCompositor(const char* error) {
  const auto backend = DbusScreenshot::Create();
  if (!backend) {
    LogMessage(LogMessage::error).stream() << error;
    return nullptr;
  }
  return AdoptGObject(backend->SnapWholeDesktop());
}

ScreenSnap Encode(GdkPixbuf* pixbuf, bool jpeg, bool limit_size) {
  ScreenSnap snap;
  if (!pixbuf) return snap;
  snap.width = static_cast<uint32_t>(gdk_pixbuf_get_width(pixbuf));
  snap.height = static_cast<uint32_t>(gdk_pixbuf_get_height(pixbuf));
  const bool reduced = limit_size && LimitSize(&snap);
  // So thin a screen that nothing is left of it counts as a failed capture.
  if (snap.width == 0 || snap.height == 0) return ScreenSnap();
  FetchPixbufImage(snap, pixbuf, snap.width, snap.height, jpeg, reduced);
  return snap;
}

}  // namespace

ScreenSnap* DesktopSessionAgent::SnapWholeDesktop(bool jpeg, bool limit_size) {
  data_.define_session_type();
  FetchActiveTaskInfo(&data_);
  const auto pixbuf = data_.is_x11 ? CaptureRoot(DesktopArea())
                                   : CaptureThroughCompositor(kLoggingRequestId_SnapDesktopError);
  PublishPicture(&data_.snap, Encode(pixbuf.get(), jpeg, limit_size));
  return &data_.snap;
}

ScreenSnap* DesktopSessionAgent::SnapActiveDisplay(bool jpeg, bool limit_size) {
  data_.define_session_type();
  FetchActiveTaskInfo(&data_);
  const auto pixbuf = data_.is_x11 ? CaptureRoot(ActiveDisplayArea())
                                   : CaptureThroughCompositor(kLoggingRequestId_SnapDisplayError);
  PublishPicture(&data_.snap, Encode(pixbuf.get(), jpeg, limit_size));
  return &data_.snap;
}

void DesktopSessionData::SnapSelection(void* context) { selection->start_selection(context); }

ScreenSnap* DesktopSessionAgent::SnapSelection(void* context) {
  data_.define_session_type();
  // Before the overlay becomes the active window.
  FetchActiveTaskInfo(&data_);
  data_.SnapSelection(context);
  return &data_.snap;
}

}  // namespace kiv
