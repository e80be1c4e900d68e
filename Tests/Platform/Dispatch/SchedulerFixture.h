// A scheduler of each kind, with a clock that stands, as the tests of their common contract see it.
#pragma once

#include <condition_variable>
#include <deque>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Platform/Dispatch/Scheduler.h"
#include "Stepping/ManualScheduler.h"

namespace zorvane::platform {

// The loop of a host that has its own: runs what is posted on a thread of its own until it is destroyed.
class HostLoop {
 public:
  HostLoop()
      : thread_([this] {
          for (Task task = next(); task; task = next()) task();
        }) {}
  ~HostLoop() {
    post(Task());
    thread_.join();
  }
  void post(Task task) {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    changed_.notify_one();
  }
  bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }
  MainLoopOptions options() {
    MainLoopOptions options;
    options.postToHostLoop = [this](Task task) { post(std::move(task)); };
    options.isMainThread = [this] { return isCurrent(); };
    return options;
  }

 private:
  Task next() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !tasks_.empty(); });
    Task task = std::move(tasks_.front());
    tasks_.pop_front();
    return task;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Task> tasks_;
  std::thread thread_;
};

class World {
 public:
  virtual ~World() = default;
  virtual Scheduler& scheduler() = 0;
  virtual void advance(double seconds) {
    const double end = clock->monotonicSeconds() + seconds;
    for (double next = scheduler().nextTimerDeadline(); next >= 0 && next <= end;
         next = scheduler().nextTimerDeadline()) {
      clock->advance(next - clock->monotonicSeconds());
      scheduler().fireDueTimers();
      scheduler().waitUntilIdle();
    }
    clock->advance(end - clock->monotonicSeconds());
    scheduler().fireDueTimers();
    scheduler().waitUntilIdle();
  }

  const std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>(Date{1'000'000});
};

class OwnThreadWorld : public World {
 public:
  Scheduler& scheduler() override { return *scheduler_; }

 private:
  std::unique_ptr<Scheduler> scheduler_ = makeThreadScheduler(clock);
};

class AdoptedWorld : public World {
 public:
  AdoptedWorld() {
    std::promise<ThreadScheduler*> made;
    loop_ = std::thread([this, &made] {
      MainLoopOptions options;
      options.adoptedByHost = true;
      const auto scheduler = makeThreadScheduler(clock, options);
      made.set_value(scheduler.get());
      scheduler->runMainLoop();
      end_.get_future().wait();
    });
    scheduler_ = made.get_future().get();
  }
  ~AdoptedWorld() override {
    scheduler_->stopMainLoop();
    end_.set_value();
    loop_.join();
  }
  Scheduler& scheduler() override { return *scheduler_; }

 private:
  ThreadScheduler* scheduler_ = nullptr;
  std::promise<void> end_;
  std::thread loop_;
};

class HostLoopWorld : public World {
 public:
  Scheduler& scheduler() override { return *scheduler_; }

 private:
  HostLoop loop_;
  std::unique_ptr<Scheduler> scheduler_ = makeThreadScheduler(clock, loop_.options());
};

class ManualWorld : public World {
 public:
  Scheduler& scheduler() override { return scheduler_; }
  void advance(double seconds) override { scheduler_.advance(seconds); }

 private:
  ManualScheduler scheduler_{clock};
};

}  // namespace zorvane::platform
