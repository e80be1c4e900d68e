// A clock that stands still until it is moved.
#pragma once

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Time/Clock.h"

namespace zorvane::platform {

// Thread-safe. The monotonic clock starts at 0.
class ManualClock final : public Clock {
 public:
  explicit ManualClock(Date start);
  Date now() const override;
  double monotonicSeconds() const override;
  bool runsByItself() const override { return false; }

  // Moves both clocks forward. Ignores 0, negative numbers and NaN.
  void advance(double seconds);
  // Sets the wall clock only; timers do not notice.
  void setNow(Date date);

 private:
  mutable Mutex mutex_;
  Date now_ ZR_GUARDED_BY(mutex_);
  double monotonic_ ZR_GUARDED_BY(mutex_) = 0;
};

}  // namespace zorvane::platform
