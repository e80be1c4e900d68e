// The main queue over real threads, and the loop that pumps it.
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

// Thread-safe. Held by a shared pointer, which its threads and the host's loop share.
class MainLoop final : public MainQueue, public std::enable_shared_from_this<MainLoop> {
 public:
  MainLoop(std::shared_ptr<QueueContext> context, std::shared_ptr<Clock> clock, MainLoopOptions options);

  void async(Task task) override;
  bool isCurrent() const override;
  void sync(const std::function<void()>& work) override;
  TimerId startRepeatingTimer(double intervalSeconds, std::function<void()> work) override;
  void cancelTimer(TimerId id) override;

  void runAdopted();
  void stop();
  double nextTimerDeadline();
  void fireDueTimers();
  // Destroys the tasks that never ran. After stop().
  void dropTasks();

 private:
  enum class Pump { OwnThread, Adopted, Host };
  struct SyncCall;

  // False, and the task is gone, when nobody pumps the queue.
  bool enqueue(Task task);
  void runSyncCall(SyncCall& call);
  void runOwnThread() noexcept;
  // Runs tasks and due timers until the loop is stopped.
  void pump();
  bool waitForWork(Task& task);
  // A turn of the host's loop: one task.
  void runNext();
  void runCounted(Task& task);
  // Fires the timers of a host's loop in time.
  void serveTimers() noexcept;
  bool waitForDueTimer();
  void fireDueOnMainThread();

  // Whether the caller is to start the own thread, once the mutex is free.
  bool noteThreadStart() ZR_REQUIRES(mutex_);
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
  bool timersOnTheirWay_ ZR_GUARDED_BY(mutex_) = false;
  bool stopped_ ZR_GUARDED_BY(mutex_) = false;
};

}  // namespace zorvane::platform
