// The two clocks: wall time for dates, monotonic time for timers.
#pragma once

#include "Platform/Export.h"
#include "Platform/Time/Date.h"

namespace zorvane::platform {

// Thread-safe.
class Clock {
 public:
  virtual ~Clock() = default;
  // The wall clock.
  virtual Date now() const = 0;
  // Seconds since an arbitrary start; never goes back. Must not throw: threads that only wait for timers ask it.
  virtual double monotonicSeconds() const = 0;
  // False for a clock that stands still until somebody moves it. Do not wait with a timeout on such a clock.
  virtual bool runsByItself() const { return true; }
};

// The system's clocks.
class ZR_PUBLIC SystemClock final : public Clock {
 public:
  Date now() const override;
  double monotonicSeconds() const override;
};

}  // namespace zorvane::platform
