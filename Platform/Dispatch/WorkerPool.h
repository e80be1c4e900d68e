// The threads behind the global queues and the serial queues.
//
// As few threads as the work needs: short tasks, however many, keep one thread busy, and who posts them wakes nobody.
// Only work that waits while that thread is stuck in a long or blocked task, or falls behind, brings in another.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Dispatch/QueueContext.h"
#include "Platform/Dispatch/Scheduler.h"
#include "Platform/Dispatch/TaskFifo.h"

namespace zorvane::platform {

// Thread-safe. Held by a shared pointer, which each of its threads shares.
class WorkerPool : public std::enable_shared_from_this<WorkerPool> {
 public:
  explicit WorkerPool(std::shared_ptr<QueueContext> context);

  // Tasks start in the order in which they were posted, those of default priority before those of background priority.
  // The task is counted in the context.
  void post(Priority priority, Task task);
  // What the current queue is while a task of that priority runs.
  const void* identity(Priority priority) const noexcept { return &identities_[indexOf(priority)]; }
  // Whether work waits for a thread; a hint.
  bool isBehind() const noexcept { return waiting_.load(std::memory_order_relaxed) != 0; }

  // Drops what waits and what comes; the threads end with the task that they run.
  void shutDown();
  bool isShutDown() const noexcept { return shutDown_.load(std::memory_order_relaxed); }

 private:
  struct Item {
    Task task;
    Priority priority = Priority::Default;
  };
  enum class Role { Searcher, Watcher };
  // How a thread is called for: a sleeping one that has been left a note, or a new one.
  enum class Call { None, Wake, StartSearcher, StartWatcher };

  static std::size_t indexOf(Priority priority) noexcept { return priority == Priority::Default ? 0 : 1; }

  void runThread(Role role) noexcept;
  // Waits for the next task; false at the end.
  bool take(Item& item, Role role) ZR_EXCLUDES(mutex_);
  bool tryTake(Item& item) ZR_REQUIRES(mutex_);
  void noteFinished(Priority priority) ZR_EXCLUDES(mutex_);
  void linger() ZR_REQUIRES(mutex_);
  // Returns when the thread is a searcher, or at the end.
  void rest(Role role) ZR_REQUIRES(mutex_);
  // True when it made the thread a searcher, false when there is nothing to watch any more.
  bool watch() ZR_REQUIRES(mutex_);

  std::size_t runnable() const ZR_REQUIRES(mutex_);
  void updateHint() ZR_REQUIRES(mutex_) { waiting_.store(runnable(), std::memory_order_relaxed); }
  // The call that the state asks for. It is noted as made: carry it out, with the mutex free.
  Call neededCall() ZR_REQUIRES(mutex_);
  void carryOut(Call call) ZR_EXCLUDES(mutex_);

  const std::shared_ptr<QueueContext> context_;
  const int cores_;
  std::array<char, 2> identities_{};

  Mutex mutex_;
  Condition wake_;
  Condition tick_;
  TaskFifo default_ ZR_GUARDED_BY(mutex_);
  TaskFifo background_ ZR_GUARDED_BY(mutex_);
  std::uint64_t taken_ ZR_GUARDED_BY(mutex_) = 0;
  // Where each thread is: running a task, awake and about to look for one, watching, or asleep.
  int threads_ ZR_GUARDED_BY(mutex_) = 0;
  int running_ ZR_GUARDED_BY(mutex_) = 0;
  int runningBackground_ ZR_GUARDED_BY(mutex_) = 0;
  int searching_ ZR_GUARDED_BY(mutex_) = 0;
  bool watching_ ZR_GUARDED_BY(mutex_) = false;
  bool lingering_ ZR_GUARDED_BY(mutex_) = false;
  int asleep_ ZR_GUARDED_BY(mutex_) = 0;
  // Notes to sleepers, counted as if they were followed already.
  int searchNotes_ ZR_GUARDED_BY(mutex_) = 0;
  int watchNotes_ ZR_GUARDED_BY(mutex_) = 0;

  std::atomic<std::size_t> waiting_{0};
  std::atomic<bool> shutDown_{false};
};

}  // namespace zorvane::platform
