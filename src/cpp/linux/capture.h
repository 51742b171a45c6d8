#ifndef SRC_CPP_LINUX_CAPTURE_H_
#define SRC_CPP_LINUX_CAPTURE_H_

#include <cstdint>

#include "../screen_snap.h"

namespace kiv {

enum class CaptureArea { kDesktop, kDisplay };

// What a capture needs to know about the session.
struct CaptureSession {
  bool is_x11;
  bool screen_locked;  // according to the last lock signal
};

// Captures the whole desktop, or the display with the active window, and encodes it as JPEG or PNG.
// Uses GDK on X11, otherwise the compositor, which captures the whole desktop for both areas. With
// `limit_size` the picture is scaled down to fit 1920 x 1080. Width and height are 0 when there is
// no picture. Logs failures, which enters JavaScript.
ScreenSnap CaptureScreen(CaptureArea area, const CaptureSession& session, bool jpeg,
                         bool limit_size);

struct LimitedSize {
  uint32_t width;
  uint32_t height;
  bool reduced;
};
// Fits a size into the limit, width first. One side of a very thin picture may become 0.
LimitedSize LimitSize(uint32_t width, uint32_t height);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_CAPTURE_H_
