// Queues of work.
//
// Any thread may post a task; the queue runs it later, and the caller does not wait for it. If a task throws, the
// exception goes to the scheduler's uncaught handler and the queue continues with the next task.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "Platform/Dispatch/Task.h"
#include "Platform/Dispatch/ThreadAnnotations.h"
#include "Platform/Export.h"

namespace zorvane::platform {

// Runs tasks.
class ZR_PUBLIC ZR_CAPABILITY("queue") Queue {
 public:
  Queue() = default;
  // The label is for debuggers.
  explicit Queue(std::string label) : label_(std::move(label)) {}
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;
  virtual ~Queue() = default;

  // Posts the task and returns. Serial queues, such as the main queue, run the tasks that one thread posts in the order
  // of posting, and all tasks one at a time; concurrent queues promise no order. Throws std::bad_alloc without memory;
  // the task is not posted then.
  virtual void async(Task task) = 0;
  // As async(). But tasks that are posted so run one at a time and in the order of posting, on a concurrent queue, too.
  // And they may wait for a few milliseconds, so that one wake serves several. They must not block, because what they
  // post may wait for their end. Override it in a concurrent queue.
  virtual void asyncSoon(Task task) { async(std::move(task)); }

  // Whether the calling code runs as part of a task of this queue (for the main queue: on the main thread).
  virtual bool isCurrent() const = 0;
  // Aborts the process, with one line on standard error, unless the calling code runs on this queue.
  void assertCurrent() const ZR_ASSERT_CAPABILITY(this);
  // For debuggers.
  const std::string& label() const noexcept { return label_; }

 private:
  std::string label_;
};

// Names a timer.
using TimerId = std::uint64_t;

// The main thread's queue, with its timers.
class MainQueue : public Queue {
 public:
  MainQueue() : Queue("main") {}

  // Runs the work on the main thread and returns when it is done; runs it inline when called on the main thread. An
  // exception of the work reaches the caller. When the main queue has stopped or the process is about to exit, returns
  // without running the work.
  virtual void sync(const std::function<void()>& work) = 0;

  // Runs the work now when called on the main thread, and its exception reaches the caller; else posts it.
  void runOrPost(Task work) { isCurrent() ? work() : async(std::move(work)); }

  // Calls the work on the main thread at every interval of the monotonic clock, first after one interval. A late timer
  // fires once and then keeps its old rhythm. Returns an id greater than 0. Intervals below a millisecond count as one.
  virtual TimerId startRepeatingTimer(double intervalSeconds, std::function<void()> work) = 0;
  // When called on the main thread, the timer does not fire again after the return. Unknown ids are ignored.
  virtual void cancelTimer(TimerId id) = 0;
};

}  // namespace zorvane::platform
