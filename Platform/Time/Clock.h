// The two clocks: wall time for dates, monotonic time for timers.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// Thread-safe.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual Date now() const = 0;
  // Seconds since an arbitrary start; never goes back.
  virtual double monotonicSeconds() const = 0;
  // False for a clock that stands until it is moved: nobody waits for such a clock with a timeout.
  virtual bool runsByItself() const { return true; }
};

class SystemClock final : public Clock {
 public:
  Date now() const override;
  double monotonicSeconds() const override;
};

// Stands still until it is moved.
class ManualClock final : public Clock {
 public:
  explicit ManualClock(Date start);
  Date now() const override;
  double monotonicSeconds() const override;
  bool runsByItself() const override { return false; }

  // Time passes on both clocks.
  void advance(double seconds);
  // The wall clock jumps; timers do not notice.
  void setNow(Date date);

 private:
  mutable Mutex mutex_;
  Date now_ ZR_GUARDED_BY(mutex_);
  double monotonic_ ZR_GUARDED_BY(mutex_) = 0;
};

}  // namespace zorvane::platform
