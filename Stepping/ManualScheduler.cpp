#include "Stepping/ManualScheduler.h"

#include <deque>
#include <utility>

#include "Platform/Dispatch/CurrentQueue.h"
#include "Platform/Dispatch/TimerList.h"
#include "Platform/Dispatch/UncaughtHandler.h"

namespace zorvane::platform {

namespace {

struct Posted {
  Task task;
  // The current queue while the task runs; null is the main queue.
  std::shared_ptr<const void> queue;
};
using PostedTasks = std::deque<Posted>;

class PostingQueue final : public Queue {
 public:
  PostingQueue(std::string label, std::shared_ptr<PostedTasks> posted)
      : Queue(std::move(label)), posted_(std::move(posted)) {}

  void async(Task task) override { posted_->push_back({std::move(task), identity_}); }
  bool isCurrent() const override { return CurrentQueue::is(identity_.get()); }

 private:
  const std::shared_ptr<PostedTasks> posted_;
  const std::shared_ptr<const void> identity_ = std::make_shared<char>();
};

class PostingMainQueue final : public MainQueue {
 public:
  PostingMainQueue(std::shared_ptr<PostedTasks> posted, std::shared_ptr<ManualClock> clock)
      : posted_(std::move(posted)), clock_(std::move(clock)) {}

  void async(Task task) override { posted_->push_back({std::move(task), nullptr}); }
  bool isCurrent() const override { return CurrentQueue::is(nullptr); }
  void sync(const std::function<void()>& work) override {
    const CurrentQueue::Scope scope(nullptr);
    work();
  }
  TimerId startRepeatingTimer(double intervalSeconds, std::function<void()> work) override {
    return timers_.add(clock_->monotonicSeconds(), intervalSeconds, std::move(work));
  }
  void cancelTimer(TimerId id) override { timers_.cancel(id); }

  double nextDeadline() const { return timers_.nextDeadline(); }
  TimerList::Work takeDue(double now) { return timers_.takeDue(now); }

 private:
  const std::shared_ptr<PostedTasks> posted_;
  const std::shared_ptr<ManualClock> clock_;
  TimerList timers_;
};

}  // namespace

struct ManualScheduler::State {
  explicit State(std::shared_ptr<ManualClock> theClock) : clock(std::move(theClock)) {}

  const std::shared_ptr<ManualClock> clock;
  const std::shared_ptr<PostedTasks> posted = std::make_shared<PostedTasks>();
  PostingMainQueue mainQueue{posted, clock};
  PostingQueue defaultQueue{"default", posted};
  PostingQueue backgroundQueue{"background", posted};
  UncaughtHandler uncaught;

  // Fires the earliest due timer; false when none is due.
  bool fireOneTimer() {
    const auto work = mainQueue.takeDue(clock->monotonicSeconds());
    if (!work) return false;
    mainQueue.sync([&] { uncaught.guard(*work); });
    return true;
  }
};

ManualScheduler::ManualScheduler(std::shared_ptr<ManualClock> clock)
    : state_(std::make_shared<State>(std::move(clock))) {}

ManualScheduler::~ManualScheduler() {
  // Tasks may own queues, and queues own this list: empty it first.
  PostedTasks dropped;
  dropped.swap(*state_->posted);
}

bool ManualScheduler::runOne() {
  if (state_->posted->empty()) return false;
  Posted next = std::move(state_->posted->front());
  state_->posted->pop_front();
  const CurrentQueue::Scope scope(next.queue.get());
  state_->uncaught.guard(next.task);
  next.task.reset();
  return true;
}

bool ManualScheduler::waitUntilIdle(double /*seconds*/) {
  while (runOne()) {
  }
  return true;
}

void ManualScheduler::advance(double seconds) {
  waitUntilIdle();
  ManualClock& clock = *state_->clock;
  const double end = clock.monotonicSeconds() + seconds;
  for (double next = nextTimerDeadline(); next >= 0 && next <= end; next = nextTimerDeadline()) {
    clock.advance(next - clock.monotonicSeconds());
    while (state_->fireOneTimer()) waitUntilIdle();
  }
  clock.advance(end - clock.monotonicSeconds());
  while (state_->fireOneTimer()) waitUntilIdle();
}

std::size_t ManualScheduler::pendingTasks() const {
  return state_->posted->size();
}

std::unique_ptr<Queue> ManualScheduler::makeSerialQueue(std::string label) {
  return std::make_unique<PostingQueue>(std::move(label), state_->posted);
}

Queue& ManualScheduler::globalQueue(Priority priority) {
  return priority == Priority::Default ? state_->defaultQueue : state_->backgroundQueue;
}

MainQueue& ManualScheduler::mainQueue() {
  return state_->mainQueue;
}

double ManualScheduler::nextTimerDeadline() {
  return state_->mainQueue.nextDeadline();
}

void ManualScheduler::fireDueTimers() {
  while (state_->fireOneTimer()) {
  }
}

void ManualScheduler::setUncaughtHandler(std::function<void(std::exception_ptr)> handler) {
  state_->uncaught.set(std::move(handler));
}

}  // namespace zorvane::platform
