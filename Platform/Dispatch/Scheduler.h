// The maker of queues. Two implementations share one contract: real threads (makeThreadScheduler) and manual stepping
// (Stepping/ManualScheduler.h).
#pragma once

#include <exception>
#include <functional>
#include <limits>
#include <memory>
#include <string>

#include "Platform/Dispatch/Queue.h"
#include "Platform/Export.h"
#include "Platform/Time/Clock.h"

namespace zorvane::platform {

// Of the two global queues.
enum class Priority { Default, Background };

// Makes the queues and runs them.
class Scheduler {
 public:
  virtual ~Scheduler() = default;

  // Tasks that wait on a serial queue still run after the queue is destroyed.
  virtual std::unique_ptr<Queue> makeSerialQueue(std::string label) = 0;
  // Concurrent. Valid as long as the scheduler.
  virtual Queue& globalQueue(Priority priority) = 0;
  // Valid as long as the scheduler.
  virtual MainQueue& mainQueue() = 0;

  // Waits until no task waits or runs on any queue, including tasks that tasks post, or until that many seconds of real
  // time are over; false if tasks are left then. Ignores timers that are not due and the tasks of a stopped main queue.
  // Returns immediately when the process is about to exit. On the main thread, runs the main queue's tasks meanwhile.
  // Must not be called from a task.
  virtual bool waitUntilIdle(double seconds = std::numeric_limits<double>::infinity()) = 0;

  // For a clock that does not run by itself. The monotonic time at which the next timer is due; negative when there is
  // no timer.
  virtual double nextTimerDeadline() = 0;
  // Fires all due timers on the main thread and waits for it.
  virtual void fireDueTimers() = 0;

  // The handler gets each exception that leaves a task, with no lock held. Without one, exceptions are ignored.
  virtual void setUncaughtHandler(std::function<void(std::exception_ptr)> handler) = 0;
};

// Which thread runs the main queue of a scheduler over real threads.
struct MainLoopOptions {
  // The main thread is the one that calls runMainLoop(); before that call, the one that made the scheduler. Otherwise
  // the scheduler starts a thread of its own.
  bool adoptedByHost = false;
  // For a host with a loop of its own. Called from any thread with work that the host must run on its main thread, soon
  // and in order. isMainThread must then be set too; runMainLoop is not used. If it throws, the uncaught handler gets
  // the exception, and the work, due timers too, runs with the next one.
  std::function<void(Task)> postToHostLoop = nullptr;
  // Called from any thread: whether it is the main thread.
  std::function<bool()> isMainThread = nullptr;
};

// A scheduler over real threads. Threads start when they are first needed and are never joined, so the process may exit
// at any moment. They block the signals that a host handles. Destroying the scheduler drops waiting tasks and does not
// wait for running ones. It destroys the global queues and the main queue; its serial queues then drop new tasks.
class ThreadScheduler : public Scheduler {
 public:
  // With adoptedByHost: runs the main queue on the calling thread until stopMainLoop(). Otherwise returns immediately.
  virtual void runMainLoop() = 0;
  // Stops the main queue for good, whichever thread runs it: waiting and later tasks never run, and callers that wait
  // in sync() return. Call from any thread.
  virtual void stopMainLoop() = 0;
  // The same for all queues: each thread ends after its current task, waiting and later tasks never run. Does not wait
  // for the threads.
  virtual void endThreads() = 0;
};

// The clock is that of the timers.
ZR_PUBLIC std::unique_ptr<ThreadScheduler> makeThreadScheduler(std::shared_ptr<Clock> clock,
                                                               MainLoopOptions options = {});

}  // namespace zorvane::platform
