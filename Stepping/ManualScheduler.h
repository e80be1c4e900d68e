// A scheduler that runs tasks and timers only when told to, on the calling thread.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "Platform/Dispatch/Scheduler.h"
#include "Stepping/ManualClock.h"

namespace zorvane::platform {

// The tasks of all queues run in the order of their posting. Outside a task, the calling thread counts as the main
// thread. Not thread-safe.
class ManualScheduler final : public Scheduler {
 public:
  explicit ManualScheduler(std::shared_ptr<ManualClock> clock);
  ~ManualScheduler() override;

  // Runs the next task; false when there is none.
  bool runOne();
  // Runs tasks, also those that tasks post, until there is none.
  void runAll() { waitUntilIdle(); }
  // Runs all tasks, then moves the clock forward, firing each timer when it is due and running all tasks after it.
  void advance(double seconds);
  std::size_t pendingTasks() const;

  std::unique_ptr<Queue> makeSerialQueue(std::string label) override;
  Queue& globalQueue(Priority priority) override;
  MainQueue& mainQueue() override;
  // Never waits, so the time does not matter.
  bool waitUntilIdle(double seconds = 0) override;
  double nextTimerDeadline() override;
  void fireDueTimers() override;
  void setUncaughtHandler(std::function<void(std::exception_ptr)> handler) override;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace zorvane::platform
