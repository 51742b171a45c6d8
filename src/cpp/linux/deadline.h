#ifndef SRC_CPP_LINUX_DEADLINE_H_
#define SRC_CPP_LINUX_DEADLINE_H_

#include <algorithm>
#include <chrono>

namespace kiv {

// A point in time that limits several steps together.
class Deadline {
 public:
  using Milliseconds = std::chrono::milliseconds;

  static Deadline In(Milliseconds limit) { return Deadline(Clock::now() + limit); }

  Deadline ExtendedBy(Milliseconds more) const { return Deadline(time_ + more); }
  // Remaining milliseconds, rounded up; 0 after the deadline.
  int Remaining() const {
    const auto left = std::chrono::ceil<Milliseconds>(time_ - Clock::now());
    return static_cast<int>(std::max(left, Milliseconds(0)).count());
  }
  bool Passed() const { return Remaining() == 0; }

 private:
  using Clock = std::chrono::steady_clock;

  explicit Deadline(Clock::time_point time) : time_(time) {}

  Clock::time_point time_;
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_DEADLINE_H_
