// The repeating timer that flushes.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "Platform/Dispatch/Queue.h"

namespace zorvane {

// The timer lives on the main queue. Any thread; off the main thread the calls wait for the main queue.
class ZRFlushTimer {
 public:
  // The work is called on the main thread at each interval.
  explicit ZRFlushTimer(std::function<void()> work) : work_(std::move(work)) {}

  // Starts at the configured interval, unless periodic flush or the SDK is disabled or the interval is below a second.
  // A timer that runs already is not stopped.
  void start();
  // Without a timer nothing happens.
  void stop();
  // Stops, and keeps that choice over restarts of the application.
  void disable();
  // Seconds; ignored unless above the remote minimum and different from the current interval. Kept over restarts. The
  // timer starts anew once the core has taken the interval over.
  void setInterval(std::int64_t seconds);

 private:
  const std::function<void()> work_;
  // Set and cleared on the main thread; 0 means none.
  std::atomic<platform::TimerId> timer_{0};
};

}  // namespace zorvane
