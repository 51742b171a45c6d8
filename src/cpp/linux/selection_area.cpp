#include "selection_area.h"

#include <algorithm>
#include <cstdlib>

namespace kiv {

bool SelectionArea::IsValidPoint(int x, int y) const {
  return left_ <= x && x <= right_ && top_ <= y && y <= bottom_;
}

GdkRectangle SelectionArea::Rectangle() const {
  return {std::min(anchor_x_, current_x_), std::min(anchor_y_, current_y_),
          std::abs(anchor_x_ - current_x_), std::abs(anchor_y_ - current_y_)};
}

void SelectionArea::Press(int x, int y) {
  button_pressed_ = true;
  anchor_x_ = current_x_ = x;
  anchor_y_ = current_y_ = y;
}

void SelectionArea::MoveTo(int x, int y) {
  current_x_ = x;
  current_y_ = y;
  if (button_pressed_) return;
  anchor_x_ = x;
  anchor_y_ = y;
}

}  // namespace kiv
