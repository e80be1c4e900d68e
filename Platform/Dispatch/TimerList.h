// The repeating timers of one main queue. Not thread-safe.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "Platform/Dispatch/Queue.h"

namespace zorvane::platform {

// Times are seconds of the monotonic clock.
class TimerList {
 public:
  using Work = std::shared_ptr<const std::function<void()>>;

  TimerId add(double now, double intervalSeconds, std::function<void()> work);
  // Returns the work, so that the caller can destroy it without a lock; null for an unknown id.
  Work cancel(TimerId id);
  // Negative when there is no timer.
  double nextDeadline() const noexcept;
  // The work of the earliest due timer, or null. The timer's next deadline is after now, in its old rhythm.
  Work takeDue(double now);

 private:
  struct Timer {
    TimerId id;
    double deadline;
    double interval;
    Work work;
  };
  std::vector<Timer> timers_;
  TimerId lastId_ = 0;
};

}  // namespace zorvane::platform
