#ifndef SRC_CPP_LINUX_SELECTION_AREA_H_
#define SRC_CPP_LINUX_SELECTION_AREA_H_

#include <gdk/gdk.h>

namespace kiv {

// The rectangle that a pointer drags out on a picture; coordinates are the picture's pixels.
struct SelectionArea {
  SelectionArea(int width, int height) : right_(width), bottom_(height) {}

  // Both bounds included.
  bool IsValidPoint(int x, int y) const;
  // The rectangle between the pressed and the moving corner.
  GdkRectangle Rectangle() const;

  // The pointer is pressed at, or moves to, a valid point. Without a press both corners move.
  void Press(int x, int y);
  void MoveTo(int x, int y);

  int left_ = 0;
  int top_ = 0;
  int right_;
  int bottom_;
  int current_x_ = 0;
  int anchor_x_ = 0;
  int current_y_ = 0;
  int anchor_y_ = 0;
  bool button_pressed_ = false;
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SELECTION_AREA_H_
