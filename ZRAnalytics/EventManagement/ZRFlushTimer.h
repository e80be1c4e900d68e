// The repeating timer that flushes.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "Platform/Dispatch/Queue.h"

namespace zorvane {

// Call from any thread. Timers live on the main thread; start, stop and disable wait for it.
class ZRFlushTimer {
 public:
  // The work is called on the main thread at each interval.
  explicit ZRFlushTimer(std::function<void()> work) : work_(std::move(work)) {}

  // Starts at the configured interval, unless periodic flush or the SDK is disabled or the interval is below a second.
  // A timer that runs already goes on beside the new one.
  void start();
  // Stops every timer that was started.
  void stop();
  // Stops, and keeps that choice over restarts of the application.
  void disable();
  // Seconds; ignored unless above the remote minimum and different from the current interval. Kept over restarts. The
  // timer starts anew once the core has taken the interval over.
  void setInterval(std::int64_t seconds);

 private:
  const std::function<void()> work_;
  // Used on the main thread only.
  std::vector<platform::TimerId> timers_;
};

}  // namespace zorvane
