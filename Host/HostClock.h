// The clocks of a run: real ones, or such that stand until the script moves them.
#pragma once

#include <atomic>
#include <cstdint>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Time/Clock.h"

namespace zorvane::host {

// Thread-safe.
class HostClock : public platform::Clock {
 public:
  // The wall clock jumps; timers do not notice.
  virtual void setNow(platform::Date date) = 0;
};

// Real time, and on the wall clock what the script has put it off by.
class RunningClock final : public HostClock {
 public:
  platform::Date now() const override;
  double monotonicSeconds() const override { return system_.monotonicSeconds(); }
  void setNow(platform::Date date) override;

 private:
  platform::SystemClock system_;
  std::atomic<double> offset_{0};
};

// Counts whole microseconds, so that many short waits add up to the millisecond.
class StandingClock final : public HostClock {
 public:
  explicit StandingClock(platform::Date start);
  platform::Date now() const override;
  double monotonicSeconds() const override;
  bool runsByItself() const override { return false; }
  void setNow(platform::Date date) override;

  // The monotonic clock in microseconds, and the first such count at which it shows so many seconds or more.
  std::int64_t ticks() const;
  static std::int64_t ticksReaching(double monotonicSeconds);
  static std::int64_t ticksOf(double duration);
  // Time passes on both clocks, until the monotonic one has reached that count.
  void advanceTo(std::int64_t ticks);

 private:
  mutable platform::Mutex mutex_;
  std::int64_t wall_ ZR_GUARDED_BY(mutex_);
  std::int64_t monotonic_ ZR_GUARDED_BY(mutex_) = 0;
};

}  // namespace zorvane::host
