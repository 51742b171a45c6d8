#ifndef SRC_CPP_LINUX_SELECTION_AREA_H_
#define SRC_CPP_LINUX_SELECTION_AREA_H_

#include <gdk/gdk.h>

namespace kiv {

// The rectangle that the pointer selects in a picture. Coordinates are the picture's pixels.
struct SelectionArea {
  SelectionArea(int width, int height) : right_(width), bottom_(height) {}

  // Both bounds are valid.
  bool IsValidPoint(int x, int y) const;
  // The rectangle between the pressed corner and the moving one.
  GdkRectangle Rectangle() const;

  // Both take a valid point. Until a press, MoveTo moves both corners.
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
