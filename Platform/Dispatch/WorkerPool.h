// The threads behind the global queues and the serial queues.
//
// The pool runs as few threads as the work needs. Short tasks, however many, keep one worker busy, and posting them
// wakes nobody. Another worker joins only when tasks wait behind a long or blocked one, or arrive faster than they run.
//
// A worker is in one of three states:
//
//               called by post()            takes a task
//               or the monitor
//     asleep ------------------> looking ------------------> running
//       ^                         |   ^                         |
//       +--- found nothing -------+   +------- task done -------+
//
// post() calls a worker only when none is looking or running. A running worker may be blocked without saying so. So
// while tasks wait behind running ones, one more thread, the monitor, checks every 10 milliseconds that they get taken,
// and calls another worker if they do not. While nothing waits but tasks come, it checks up to eight times more rarely.
// It goes to sleep when nothing waits and nothing was taken, or when it has called a worker.
//
// A wake costs more than a short task. So a worker that did not sleep for long lingers: it sleeps for a few
// milliseconds and then looks by itself, and post() does not call it for a task that may wait so long. When it finds
// nothing, it sleeps until it is called. An idle pool never wakes up.
//
// Tasks that may wait make batches: one task of the pool runs all that were posted without another default task between
// them. A batch runs after the one before it has ended. These tasks must not block: what they post may wait for the end
// of their batch, so that an event that comes alone wakes one thread, not the monitor, too.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Dispatch/QueueContext.h"
#include "Platform/Dispatch/Scheduler.h"
#include "Platform/Dispatch/Semaphore.h"
#include "Platform/Dispatch/TaskFifo.h"

namespace zorvane::platform {

// Thread-safe. Hold it by a shared pointer; each of its threads keeps one too.
class WorkerPool : public std::enable_shared_from_this<WorkerPool> {
 public:
  explicit WorkerPool(std::shared_ptr<QueueContext> context);

  // Whether a task may wait for a lingering worker, and for all earlier ones of the kind.
  enum class Urgency { Now, Soon };

  // Starts tasks in the order in which they were posted, default priority before background priority; but Soon tasks
  // wait for the end of the earlier ones. Counts the task in the context until it is done. After shutDown() the task is
  // dropped. At background priority Soon is Now.
  void post(Priority priority, Task&& task, Urgency urgency);
  // Ends the wait of the tasks that were posted as Soon.
  void hurry();
  // Whether some of them have not run yet. The answer is exact for those that the calling thread posted.
  bool hasBatches() const noexcept { return hasBatches_.load(std::memory_order_relaxed); }
  // Whether the calling thread is a worker.
  static bool isWorker() noexcept { return isWorker_; }
  // The current queue (CurrentQueue) while a task of that priority runs.
  const void* identity(Priority priority) const noexcept { return &identities_[indexOf(priority)]; }
  // Whether tasks wait for a worker. A hint: may be out of date.
  bool isBehind() const noexcept { return isBehind_.load(std::memory_order_relaxed); }

  // Drops the waiting tasks and all later ones. Does not wait: each thread ends after its current task.
  void shutDown();
  bool isShutDown() const noexcept { return shutDown_.load(std::memory_order_relaxed); }

 private:
  struct Item {
    Task task;
    Priority priority = Priority::Default;
  };
  struct Batch {
    std::uint64_t number = 0;
    TaskFifo tasks;
    std::unique_ptr<Batch> next;
  };
  // The thread to wake or start after the mutex is released.
  enum class Call { None, WakeWorker, StartWorker, WakeMonitor, StartMonitor };

  static std::size_t indexOf(Priority priority) noexcept { return priority == Priority::Default ? 0 : 1; }

  // The body of a worker. Ends at shutdown.
  void runWorker() noexcept;
  // Waits for the next task. The calling worker is looking, then running. False at shutdown.
  bool take(Item& item) ZR_EXCLUDES(mutex_);
  // Takes the next task after this one, which has run. The calling worker is running, then running again, or looking
  // if it returns false because there is none.
  bool takeNext(Item& item) ZR_EXCLUDES(mutex_);
  // Takes a task if one may start. The calling worker is looking, then running.
  bool tryTake(Item& item) ZR_REQUIRES(mutex_);
  // The calling worker is looking, then asleep, and looking again when it was called or has lingered. Returns at
  // shutdown too.
  void sleepUntilCalled() ZR_REQUIRES(mutex_);

  // The body of the monitor. Ends at shutdown.
  void runMonitor() noexcept;
  // Waits until tasks have waited for 10 milliseconds, then returns the call they need, if any.
  Call checkProgress(int cores) ZR_EXCLUDES(mutex_);

  // How many waiting tasks may start now.
  std::size_t runnable() const ZR_REQUIRES(mutex_);
  // Writes only a change: workers read the cache line after each task.
  void updateHint() ZR_REQUIRES(mutex_) {
    const bool isWaiting = runnable() > 0;
    if (isWaiting != isBehind()) isBehind_.store(isWaiting, std::memory_order_relaxed);
  }
  // Adds the task to the open batch, or opens one.
  void addToBatch(Task&& task) ZR_REQUIRES(mutex_);
  // Runs the batch, then those that have waited for its end; or leaves it to the thread that runs the one before it.
  void runBatch(std::unique_ptr<Batch> batch) ZR_EXCLUDES(mutex_);
  // Which thread to wake or start so that waiting tasks run. The counters already include it: always pass the result to
  // carryOut().
  Call neededCall(Urgency urgency = Urgency::Now) ZR_REQUIRES(mutex_);
  // Adds one worker: wakes a sleeping one or starts a thread. None if the maximum is awake. The counters already
  // include it: pass the result to carryOut().
  Call callWorker() ZR_REQUIRES(mutex_);
  // Wakes or starts the thread. If the system has no thread to give, the next post tries again.
  void carryOut(Call call) ZR_EXCLUDES(mutex_);

  static inline thread_local bool isWorker_ = false;
  // Whether the calling thread runs tasks that were posted as Soon.
  static inline thread_local bool isInBatch_ = false;

  const std::shared_ptr<QueueContext> context_;
  std::array<char, 2> identities_{};

  Mutex mutex_;
  TaskFifo default_ ZR_GUARDED_BY(mutex_);
  TaskFifo background_ ZR_GUARDED_BY(mutex_);
  // The batch that the last task of default_ will run, if more tasks may join it; else null.
  Batch* openBatch_ ZR_GUARDED_BY(mutex_) = nullptr;
  // One that has ended, for reuse.
  std::unique_ptr<Batch> spareBatch_ ZR_GUARDED_BY(mutex_);
  std::uint64_t openedBatches_ ZR_GUARDED_BY(mutex_) = 0;
  std::uint64_t endedBatches_ ZR_GUARDED_BY(mutex_) = 0;
  // Taken before the one before them had ended, by number.
  std::unique_ptr<Batch> earlyBatches_ ZR_GUARDED_BY(mutex_);

  // Workers in each state. A called worker counts as looking from the call on.
  int looking_ ZR_GUARDED_BY(mutex_) = 0;
  int running_ ZR_GUARDED_BY(mutex_) = 0;
  int asleep_ ZR_GUARDED_BY(mutex_) = 0;
  int runningBackground_ ZR_GUARDED_BY(mutex_) = 0;
  // Whether one of the sleeping workers lingers, and whether the next one that goes to sleep should.
  bool isLingering_ ZR_GUARDED_BY(mutex_) = false;
  bool shouldLinger_ ZR_GUARDED_BY(mutex_) = false;
  // Posted once for each sleeping worker that is called.
  Semaphore workerCalled_;

  bool monitorStarted_ ZR_GUARDED_BY(mutex_) = false;
  bool monitoring_ ZR_GUARDED_BY(mutex_) = false;
  // Until its next check.
  double monitorSeconds_ ZR_GUARDED_BY(mutex_);
  // Tasks taken so far, for the monitor.
  std::uint64_t taken_ ZR_GUARDED_BY(mutex_) = 0;
  Condition monitorCalled_;

  std::atomic<bool> isBehind_{false};
  std::atomic<bool> hasBatches_{false};
  std::atomic<bool> shutDown_{false};
};

}  // namespace zorvane::platform
