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

  // Tasks that wait on a serial queue when it is destroyed still run.
  virtual std::unique_ptr<Queue> makeSerialQueue(std::string label) = 0;
  virtual Queue& globalQueue(Priority priority) = 0;
  virtual MainQueue& mainQueue() = 0;

  // Returns when no task is waiting or running on any queue (those posted by the tasks themselves included). Timers
  // that are not due do not count, nor do tasks of a main queue that was stopped. Must not be called from a task, nor
  // on the main thread of a scheduler of real threads. Returns at once when the process is about to exit.
  virtual void waitUntilIdle() = 0;

  // Whoever fires timers by hand (a clock that stands): the monotonic time at which the next timer is due, negative
  // when there is none, and the firing of all that are due now (on the main thread; the call waits for it).
  virtual double nextTimerDeadline() = 0;
  virtual void fireDueTimers() = 0;

  // Called, with no lock held, with an exception that left a task. The default ignores it.
  virtual void setUncaughtHandler(std::function<void(std::exception_ptr)> handler) = 0;
};

// How the main queue of the real scheduler is pumped.
struct MainLoopOptions {
  // The calling thread of runMainLoop() is the main thread, and until that call the thread that made the scheduler;
  // otherwise the scheduler starts a thread of its own.
  bool adoptedByHost = false;
  // A host with a loop of its own: called from any thread with work to be run on the host's main thread, soon and in
  // order. With it, isMainThread must tell the host's main thread; runMainLoop is not used.
  std::function<void(Task)> postToHostLoop;
  std::function<bool()> isMainThread;
};

// A scheduler over real threads. Its threads are started when they are first needed, and never joined: exit is safe
// at any moment. They take no signals that a host handles. Destroying it lets running tasks end and drops waiting ones;
// its global and main queue go with it, its serial queues then drop what they are given.
class ThreadScheduler : public Scheduler {
 public:
  // With adoptedByHost: pumps the main queue on the calling thread until stopMainLoop() is called. Otherwise returns.
  virtual void runMainLoop() = 0;
  // From any thread, for any kind of main loop, for good: the main queue runs nothing more, whatever waits or comes,
  // and who waits in sync() returns.
  virtual void stopMainLoop() = 0;
};

std::unique_ptr<ThreadScheduler> makeThreadScheduler(std::shared_ptr<Clock> clock, MainLoopOptions options = {});

}  // namespace zorvane::platform
