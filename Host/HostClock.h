// The clocks of a run: real, or moved only by the script.
#pragma once

#include <atomic>
#include <cstdint>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Time/Clock.h"

namespace zorvane::host {

// Thread-safe.
class HostClock : public platform::Clock {
 public:
  // Sets the wall clock. The monotonic clock, and so timers, do not change.
  virtual void setNow(platform::Date date) = 0;
};

// Real time; on the wall clock plus the offset that the script set.
class RunningClock final : public HostClock {
 public:
  platform::Date now() const override;
  double monotonicSeconds() const override { return system_.monotonicSeconds(); }
  void setNow(platform::Date date) override;

 private:
  platform::SystemClock system_;
  std::atomic<double> offset_{0};
};

// Stands still until advanced. Counts whole microseconds, so that many short waits add up exactly.
class StandingClock final : public HostClock {
 public:
  explicit StandingClock(platform::Date start);
  platform::Date now() const override;
  double monotonicSeconds() const override;
  bool runsByItself() const override { return false; }
  void setNow(platform::Date date) override;

  // Ticks are microseconds of the monotonic clock.
  std::int64_t ticks() const;
  // The first tick at which a timer with that deadline is due. Deadlines are sums of doubles: the tick may be a
  // fraction of a microsecond before.
  static std::int64_t ticksOfDeadline(double monotonicSeconds);
  static std::int64_t ticksOf(double duration);
  // Advances both clocks until the monotonic one has reached that tick.
  void advanceTo(std::int64_t ticks);

 private:
  mutable platform::Mutex mutex_;
  std::int64_t wall_ ZR_GUARDED_BY(mutex_);
  std::int64_t monotonic_ ZR_GUARDED_BY(mutex_) = 0;
};

}  // namespace zorvane::host
