// A limit to the time that several waits take together.
#pragma once

#include <algorithm>
#include <chrono>

namespace zorvane::platform {

// Seconds of real time until a deadline.
class Deadline {
 public:
  explicit Deadline(double seconds) : end_(now() + seconds) {}
  // Not negative.
  double secondsLeft() const { return std::max(0.0, end_ - now()); }

 private:
  static double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  }
  const double end_;
};

}  // namespace zorvane::platform
