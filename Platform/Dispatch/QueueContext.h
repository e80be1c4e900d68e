// What the queues of one scheduler share.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Dispatch/Task.h"
#include "Platform/Dispatch/UncaughtHandler.h"

namespace zorvane::platform {

// How long a thread that can tell nobody waits for memory before it tries again.
inline constexpr std::chrono::milliseconds kMemoryPause{10};

// Counts the tasks that wait or run. Thread-safe.
class TaskCounter {
 public:
  // Call before another thread can run the task.
  void add() noexcept { outstanding_.fetch_add(1, std::memory_order_relaxed); }
  // Call after the tasks and all that they hold are destroyed.
  void done(std::size_t count = 1) noexcept;
  // Returns when the count is 0, after release(), or after that many seconds of real time; true if the count was 0. A
  // caller on the main thread gives a function that runs the tasks of the main queue.
  bool waitForNone(double seconds, const std::function<void()>& runMainTasks);
  // Call after a task was added to the main queue: a wait on the main thread runs it.
  void mainTaskWaits() noexcept;
  // Ends every wait, also later ones.
  void release();

 private:
  std::atomic<std::size_t> outstanding_{0};
  std::atomic<int> waiters_{0};
  Mutex mutex_;
  Condition changed_;
  bool released_ ZR_GUARDED_BY(mutex_) = false;
  bool mainTaskWaits_ ZR_GUARDED_BY(mutex_) = false;
};

struct QueueContext {
  TaskCounter tasks;
  UncaughtHandler uncaught;
};

}  // namespace zorvane::platform
