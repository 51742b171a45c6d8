#ifndef SRC_CPP_LINUX_CAPTURE_H_
#define SRC_CPP_LINUX_CAPTURE_H_

#include <cstdint>

#include "../screen_snap.h"

namespace kiv {

enum class CaptureArea { kDesktop, kDisplay };

// What a capture has to know of the session.
struct CaptureSession {
  bool is_x11;
  bool screen_locked;  // as far as lock signals have said
};

// A picture of the whole desktop or of the display with the active window, encoded as JPEG or PNG;
// of width and height 0 when there is none. Through GDK on X11, else through the compositor, which
// gives the whole desktop for both. With `limit_size` it is made to fit 1920 x 1080. A failure is
// logged, which enters JavaScript.
ScreenSnap CaptureScreen(CaptureArea area, const CaptureSession& session, bool jpeg,
                         bool limit_size);

struct LimitedSize {
  uint32_t width;
  uint32_t height;
  bool reduced;
};
// Fits a size into the limit, width first. A side of so thin a picture may become 0.
LimitedSize LimitSize(uint32_t width, uint32_t height);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_CAPTURE_H_
