// A scheduler for tests: nothing runs until the test says so, everything runs on the test's thread.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "Platform/Dispatch/Scheduler.h"
#include "Stepping/ManualClock.h"

namespace zorvane::platform {

// Tasks of all queues run in the order in which they were posted, whatever their queue. Outside a task the test's
// thread counts as the main thread. Not thread-safe.
class ManualScheduler final : public Scheduler {
 public:
  explicit ManualScheduler(std::shared_ptr<ManualClock> clock);
  ~ManualScheduler() override;

  // Runs the next task; false when none waits.
  bool runOne();
  // Runs tasks until none waits.
  void runAll() { waitUntilIdle(); }
  // Runs all tasks, then moves the clock on, firing each timer at its time and running all tasks after each firing.
  void advance(double seconds);
  std::size_t pendingTasks() const;

  std::unique_ptr<Queue> makeSerialQueue(std::string label) override;
  Queue& globalQueue(Priority priority) override;
  MainQueue& mainQueue() override;
  void waitUntilIdle() override;
  double nextTimerDeadline() override;
  void fireDueTimers() override;
  void setUncaughtHandler(std::function<void(std::exception_ptr)> handler) override;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace zorvane::platform
