#include "selection_area.h"

#include <algorithm>
#include <cstdlib>

namespace kiv {

bool SelectionArea::IsValidPoint(int x, int y) const {
  return left_ <= x && x <= right_ && top_ <= y && y <= bottom_;
}

void SelectionArea::get_rect(int& x, int& y, int& w, int& h) const {
  x = std::min(anchor_x_, current_x_);
  y = std::min(anchor_y_, current_y_);
  w = std::abs(anchor_x_ - current_x_);
  h = std::abs(anchor_y_ - current_y_);
}

GdkRectangle SelectionArea::Rectangle() const {
  GdkRectangle area = {};
  get_rect(area.x, area.y, area.width, area.height);
  return area;
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
