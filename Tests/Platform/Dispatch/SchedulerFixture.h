// A scheduler of each kind, with a manual clock, for the tests of their common contract.
#pragma once

#include <condition_variable>
#include <deque>
#include <latch>
#include <memory>
#include <mutex>
#include <thread>

#include "Platform/Dispatch/Scheduler.h"
#include "Stepping/ManualScheduler.h"

namespace zorvane::platform {

// A host's own loop: runs posted tasks on its own thread until it is destroyed.
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
  MainLoopOptions options() {
    MainLoopOptions options;
    options.postToHostLoop = [this](Task task) { post(std::move(task)); };
    options.isMainThread = [this] { return std::this_thread::get_id() == thread_.get_id(); };
    return options;
  }

 private:
  void post(Task task) {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    changed_.notify_one();
  }
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

class SchedulerFixture {
 public:
  virtual ~SchedulerFixture() = default;
  virtual Scheduler& scheduler() = 0;
  // Runs all tasks, then moves the clock from timer to timer, running all tasks after each.
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

class OwnThreadFixture : public SchedulerFixture {
 public:
  Scheduler& scheduler() override { return *scheduler_; }

 private:
  std::unique_ptr<Scheduler> scheduler_ = makeThreadScheduler(clock);
};

class AdoptedFixture : public SchedulerFixture {
 public:
  AdoptedFixture()
      : loop_([this] {
          scheduler_ = makeThreadScheduler(clock, {.adoptedByHost = true});
          made_.count_down();
          scheduler_->runMainLoop();
        }) {
    made_.wait();
  }
  ~AdoptedFixture() override {
    scheduler_->stopMainLoop();
    loop_.join();
  }
  Scheduler& scheduler() override { return *scheduler_; }

 private:
  std::unique_ptr<ThreadScheduler> scheduler_;
  std::latch made_{1};
  std::thread loop_;
};

class HostLoopFixture : public SchedulerFixture {
 public:
  Scheduler& scheduler() override { return *scheduler_; }

 private:
  HostLoop loop_;
  std::unique_ptr<Scheduler> scheduler_ = makeThreadScheduler(clock, loop_.options());
};

class ManualFixture : public SchedulerFixture {
 public:
  Scheduler& scheduler() override { return scheduler_; }
  void advance(double seconds) override { scheduler_.advance(seconds); }

 private:
  ManualScheduler scheduler_{clock};
};

}  // namespace zorvane::platform
