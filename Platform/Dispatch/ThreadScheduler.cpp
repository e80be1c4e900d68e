#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "Platform/Dispatch/CurrentQueue.h"
#include "Platform/Dispatch/MainLoop.h"
#include "Platform/Dispatch/QueueContext.h"
#include "Platform/Dispatch/Scheduler.h"
#include "Platform/Dispatch/SerialQueue.h"
#include "Platform/Dispatch/WorkerPool.h"

namespace zorvane::platform {

namespace {

// Stops every scheduler when the process is about to exit. Never destroyed, because threads still run then.
class ExitHandler {
 public:
  static ExitHandler& instance() {
    static ExitHandler& handler = []() -> ExitHandler& {
      auto* const made = new ExitHandler;
      std::atexit([] { instance().end(); });
      return *made;
    }();
    return handler;
  }

  void add(const std::shared_ptr<MainLoop>& loop, const std::shared_ptr<QueueContext>& context) {
    MutexLock lock(mutex_);
    std::erase_if(entries_, [](const Entry& entry) { return entry.loop.expired(); });
    entries_.push_back({loop, context});
  }

 private:
  struct Entry {
    std::weak_ptr<MainLoop> loop;
    std::weak_ptr<QueueContext> context;
  };

  void end() {
    std::vector<Entry> entries;
    {
      MutexLock lock(mutex_);
      entries = entries_;
    }
    for (const Entry& entry : entries) {
      if (const auto context = entry.context.lock()) context->tasks.release();
      if (const auto loop = entry.loop.lock()) loop->stop();
    }
  }

  Mutex mutex_;
  std::vector<Entry> entries_ ZR_GUARDED_BY(mutex_);
};

class GlobalQueue final : public Queue {
 public:
  GlobalQueue(std::string label, Priority priority, std::shared_ptr<WorkerPool> pool)
      : Queue(std::move(label)), priority_(priority), pool_(std::move(pool)) {}

  void async(Task task) override { pool_->post(priority_, std::move(task), WorkerPool::Urgency::Now); }
  void asyncSoon(Task task) override { pool_->post(priority_, std::move(task), WorkerPool::Urgency::Soon); }
  bool isCurrent() const override { return CurrentQueue::is(pool_->identity(priority_)); }

 private:
  const Priority priority_;
  const std::shared_ptr<WorkerPool> pool_;
};

class ThreadSchedulerOverPool final : public ThreadScheduler {
 public:
  ThreadSchedulerOverPool(std::shared_ptr<Clock> clock, MainLoopOptions options)
      : main_(std::make_shared<MainLoop>(context_, std::move(clock), std::move(options))) {
    ExitHandler::instance().add(main_, context_);
  }
  ~ThreadSchedulerOverPool() override {
    endThreads();
    main_->dropTasks();
  }

  std::unique_ptr<Queue> makeSerialQueue(std::string label) override {
    return std::make_unique<SerialQueue>(std::move(label), pool_, context_);
  }
  Queue& globalQueue(Priority priority) override {
    return priority == Priority::Default ? defaultQueue_ : backgroundQueue_;
  }
  MainQueue& mainQueue() override { return *main_; }
  bool waitUntilIdle(double seconds) override {
    pool_->hurry();
    return context_->tasks.waitForNone(
        seconds, main_->isCurrent() ? [loop = main_] { loop->runWaiting(); } : std::function<void()>());
  }
  double nextTimerDeadline() override { return main_->nextTimerDeadline(); }
  void fireDueTimers() override { main_->fireDueTimers(); }
  void setUncaughtHandler(std::function<void(std::exception_ptr)> handler) override {
    context_->uncaught.set(std::move(handler));
  }
  void runMainLoop() override { main_->runAdopted(); }
  void stopMainLoop() override { main_->stop(); }
  void endThreads() override {
    pool_->shutDown();
    main_->stop();
  }

 private:
  const std::shared_ptr<QueueContext> context_ = std::make_shared<QueueContext>();
  const std::shared_ptr<WorkerPool> pool_ = std::make_shared<WorkerPool>(context_);
  const std::shared_ptr<MainLoop> main_;
  GlobalQueue defaultQueue_{"default", Priority::Default, pool_};
  GlobalQueue backgroundQueue_{"background", Priority::Background, pool_};
};

}  // namespace

std::unique_ptr<ThreadScheduler> makeThreadScheduler(std::shared_ptr<Clock> clock, MainLoopOptions options) {
  return std::make_unique<ThreadSchedulerOverPool>(std::move(clock), std::move(options));
}

}  // namespace zorvane::platform
