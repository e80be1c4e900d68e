// Queues of work.
//
// Every queue takes tasks from any thread, never blocks the caller on their work, and runs them later. A task that
// throws ends alone: the exception goes to the scheduler's uncaught handler and the queue goes on.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "Platform/Dispatch/Task.h"
#include "Platform/Dispatch/ThreadAnnotations.h"

namespace zorvane::platform {

class ZR_CAPABILITY("queue") Queue {
 public:
  Queue() = default;
  explicit Queue(std::string label) : label_(std::move(label)) {}
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;
  virtual ~Queue() = default;

  // Takes the task over and returns. Serial queues (the main queue too) run tasks in the order in which they were
  // handed in, one at a time; concurrent queues promise no order.
  virtual void async(Task task) = 0;

  // Whether the calling code runs as part of a task of this queue (for the main queue: on the main thread).
  virtual bool isCurrent() const = 0;
  // Ends the process, with one line on standard error, when the calling code does not run on this queue.
  void assertCurrent() const ZR_ASSERT_CAPABILITY(this);
  const std::string& label() const noexcept { return label_; }

 private:
  std::string label_;
};

using TimerId = std::uint64_t;

// The main thread's queue, with the timers that live on its run loop.
class MainQueue : public Queue {
 public:
  MainQueue() : Queue("main") {}

  // Runs the work on the main thread and returns when it is done; inline when the caller is there already. An
  // exception of the work reaches the caller. With a main queue that nobody pumps any more (stopped, or the process is
  // about to exit) the call returns without running the work.
  virtual void sync(const std::function<void()>& work) = 0;

  // Calls the work on the main thread every so many seconds of the monotonic clock, first after one interval. A
  // timer that is late fires once and then keeps its old rhythm. Returns an id greater than 0. An interval below a
  // millisecond counts as one.
  virtual TimerId startRepeatingTimer(double intervalSeconds, std::function<void()> work) = 0;
  // After it returns on the main thread, the timer does not fire again. Unknown ids are ignored.
  virtual void cancelTimer(TimerId id) = 0;
};

}  // namespace zorvane::platform
