// The main queue over real threads, and the loop that runs its tasks.
#pragma once

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <thread>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Dispatch/QueueContext.h"
#include "Platform/Dispatch/Scheduler.h"
#include "Platform/Dispatch/TaskFifo.h"
#include "Platform/Dispatch/TimerList.h"
#include "Platform/Time/Clock.h"

namespace zorvane::platform {

// Thread-safe. Hold it by a shared pointer; its threads and the tasks posted to a host's loop keep one too.
class MainLoop final : public MainQueue, public std::enable_shared_from_this<MainLoop> {
 public:
  MainLoop(std::shared_ptr<QueueContext> context, std::shared_ptr<Clock> clock, MainLoopOptions options);

  void async(Task task) override;
  bool isCurrent() const override;
  void sync(const std::function<void()>& work) override;
  TimerId startRepeatingTimer(double intervalSeconds, std::function<void()> work) override;
  void cancelTimer(TimerId id) override;

  // Runs the tasks that wait now, not those that they post. Main thread.
  void runWaiting();
  // See Scheduler and ThreadScheduler.
  void runAdopted();
  void stop();
  double nextTimerDeadline();
  void fireDueTimers();
  // Destroys the tasks that never ran. Call after stop().
  void dropTasks();

 private:
  // Who runs the tasks: a thread of the loop's own, the caller of runAdopted(), or a host's loop by runWaiting().
  enum class Pump { OwnThread, Adopted, Host };
  struct SyncCall;

  // False if the loop is stopped (the task is destroyed), its thread could not be started or the host's loop threw (the
  // task stays queued; the next post tries again).
  bool enqueue(Task task);
  // Runs the work of sync() on the main thread, unless its caller has given up.
  void runSyncCall(SyncCall& call);
  // The body of the loop's own thread.
  void runOwnThread() noexcept;
  // Runs tasks and due timers until the loop is stopped.
  void pump();
  // Waits for the next task, or the work of a due timer. False when the loop is stopped.
  bool waitForWork(Task& task);
  // Runs the next task. False if none waits, or the loop is stopped.
  bool runNext();
  // Runs and destroys the task, then counts it as done.
  void runCounted(Task& task);
  // The body of the timer thread of a host's loop: posts the firing of timers when they are due.
  void serveTimers() noexcept;
  // Waits until timers are due and no earlier firing is still posted. False when the loop is stopped.
  bool waitForDueTimer();
  void fireDueOnMainThread();
  // Lets the next firing be posted.
  void endFiring();

  // True when the caller must call startOwnThread() after it releases the mutex.
  bool claimThreadStart() ZR_REQUIRES(mutex_);
  // False when the system cannot start a thread; the next post tries again.
  bool startOwnThread() ZR_EXCLUDES(mutex_);

  const std::shared_ptr<QueueContext> context_;
  const std::shared_ptr<Clock> clock_;
  const MainLoopOptions options_;
  const Pump pump_;
  std::atomic<std::thread::id> mainThread_;

  Mutex mutex_;
  Condition wake_;
  Condition syncCallChanged_;
  TaskFifo tasks_ ZR_GUARDED_BY(mutex_);
  TimerList timers_ ZR_GUARDED_BY(mutex_);
  bool asleep_ ZR_GUARDED_BY(mutex_) = false;
  bool ownThreadStarted_ ZR_GUARDED_BY(mutex_) = false;
  bool timerThreadStarted_ ZR_GUARDED_BY(mutex_) = false;
  bool firingPosted_ ZR_GUARDED_BY(mutex_) = false;
  bool stopped_ ZR_GUARDED_BY(mutex_) = false;
};

}  // namespace zorvane::platform
