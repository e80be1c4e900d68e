// What the queues of one scheduler have in common.
#pragma once

#include <atomic>
#include <cstdint>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Dispatch/Task.h"
#include "Platform/Dispatch/UncaughtHandler.h"

namespace zorvane::platform {

// How many tasks wait or run. Thread-safe.
class TaskCounter {
 public:
  // Before the task can be seen by whoever runs it.
  void add() noexcept { outstanding_.fetch_add(1, std::memory_order_relaxed); }
  // After the tasks and all that they held are gone.
  void done(std::size_t count = 1) noexcept;
  // Returns when the count is 0, or after release().
  void waitForNone();
  // From now on nobody waits.
  void release();

 private:
  std::atomic<std::size_t> outstanding_{0};
  std::atomic<int> waiters_{0};
  Mutex mutex_;
  Condition changed_;
  bool released_ ZR_GUARDED_BY(mutex_) = false;
};

struct QueueContext {
  TaskCounter tasks;
  UncaughtHandler uncaught;
};

}  // namespace zorvane::platform
