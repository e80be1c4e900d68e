// Where queues come from. Two implementations hold one contract: real threads (makeThreadScheduler) and stepping by
// hand (ManualScheduler).
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "Platform/Dispatch/Queue.h"
#include "Platform/Time/Clock.h"

namespace zorvane::platform {

enum class Priority { Default, Background };

class Scheduler {
 public:
  virtual ~Scheduler() = default;

  virtual std::unique_ptr<Queue> makeSerialQueue(std::string label) = 0;
  virtual Queue& globalQueue(Priority priority) = 0;
  virtual MainQueue& mainQueue() = 0;

  // Returns when no task is waiting or running on any queue (those posted by the tasks themselves included). Timers
  // that are not due do not count. Must not be called from a task.
  virtual void waitUntilIdle() = 0;

  // Whoever fires timers by hand (a clock that stands): the monotonic time at which the next timer is due, negative
  // when there is none, and the firing of all that are due now.
  virtual double nextTimerDeadline() = 0;
  virtual void fireDueTimers() = 0;

  // Called, with no lock held, with an exception that left a task. The default ignores it.
  virtual void setUncaughtHandler(std::function<void(std::exception_ptr)> handler) = 0;
};

// How the main queue of the real scheduler is pumped.
struct MainLoopOptions {
  // The calling thread of runMainLoop() is the main thread; otherwise the scheduler starts a thread of its own.
  bool adoptedByHost = false;
  // A host with a loop of its own: called from any thread with work to be run on the host's main thread, soon and in
  // order. With it, isMainThread must tell the host's main thread; runMainLoop is not used.
  std::function<void(Task)> postToHostLoop;
  std::function<bool()> isMainThread;
};

// A scheduler over real threads. Its threads are started when they are first needed, and never joined: exit is safe
// at any moment.
class ThreadScheduler : public Scheduler {
 public:
  // Pumps the main queue on the calling thread until stopMainLoop() is called (from any thread).
  virtual void runMainLoop() = 0;
  virtual void stopMainLoop() = 0;
};

std::unique_ptr<ThreadScheduler> makeThreadScheduler(std::shared_ptr<Clock> clock, MainLoopOptions options = {});

}  // namespace zorvane::platform
