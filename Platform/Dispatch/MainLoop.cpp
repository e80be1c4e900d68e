#include "Platform/Dispatch/MainLoop.h"

#include <new>
#include <utility>

#include "Platform/Dispatch/DetachedThread.h"

namespace zorvane::platform {

struct MainLoop::SyncCall {
  enum class State { Waiting, Running, Done, GivenUp };
  const std::function<void()>* work;
  // Guarded by the loop's mutex.
  State state = State::Waiting;
  std::exception_ptr exception = nullptr;
};

MainLoop::MainLoop(std::shared_ptr<QueueContext> context, std::shared_ptr<Clock> clock, MainLoopOptions options)
    : context_(std::move(context)),
      clock_(std::move(clock)),
      options_(std::move(options)),
      pump_(options_.postToHostLoop  ? Pump::Host
            : options_.adoptedByHost ? Pump::Adopted
                                     : Pump::OwnThread),
      mainThread_(pump_ == Pump::Adopted ? std::this_thread::get_id() : std::thread::id()) {}

void MainLoop::async(Task task) {
  enqueue(std::move(task));
}

bool MainLoop::isCurrent() const {
  if (pump_ == Pump::Host) return options_.isMainThread();
  return mainThread_.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

// Once a task or a stop is visible to other threads, one of them may destroy the scheduler. So the operations below
// keep the loop alive until they return.

bool MainLoop::enqueue(Task task) {
  const auto self = shared_from_this();
  bool wake = false;
  bool start = false;
  {
    MutexLock lock(mutex_);
    if (stopped_) return false;
    tasks_.push(std::move(task));
    context_->tasks.add();
    wake = pump_ != Pump::Host && std::exchange(asleep_, false);
    start = claimThreadStart();
  }
  if (wake) wake_.notifyOne();
  context_->tasks.mainTaskWaits();
  if (pump_ != Pump::Host) return !start || startOwnThread();
  bool isPosted = false;
  context_->uncaught.guard([&] {
    // Also the tasks whose post failed.
    options_.postToHostLoop([self] { self->runWaiting(); });
    isPosted = true;
  });
  return isPosted;
}

void MainLoop::sync(const std::function<void()>& work) {
  if (isCurrent()) return work();
  const auto self = shared_from_this();
  const auto call = std::make_shared<SyncCall>();
  call->work = &work;
  const bool pumped = enqueue([this, call] { runSyncCall(*call); });
  std::exception_ptr exception;
  {
    MutexLock lock(mutex_);
    const auto isPumped = [&]() ZR_REQUIRES(mutex_) {
      return pumped && !stopped_ && (pump_ != Pump::OwnThread || ownThreadStarted_);
    };
    while (call->state == SyncCall::State::Running || (call->state == SyncCall::State::Waiting && isPumped())) {
      syncCallChanged_.wait(mutex_);
    }
    if (call->state == SyncCall::State::Waiting) call->state = SyncCall::State::GivenUp;
    exception = std::move(call->exception);
  }
  if (exception) std::rethrow_exception(std::move(exception));
}

void MainLoop::runSyncCall(SyncCall& call) {
  {
    MutexLock lock(mutex_);
    if (call.state == SyncCall::State::GivenUp) return;
    call.state = SyncCall::State::Running;
  }
  std::exception_ptr exception;
  try {
    (*call.work)();
  } catch (...) {
    exception = std::current_exception();
  }
  {
    MutexLock lock(mutex_);
    call.exception = std::move(exception);
    call.state = SyncCall::State::Done;
  }
  syncCallChanged_.notifyAll();
}

TimerId MainLoop::startRepeatingTimer(double intervalSeconds, std::function<void()> work) {
  const double now = clock_->monotonicSeconds();
  const bool timed = clock_->runsByItself();
  TimerId id = 0;
  bool startMain = false;
  bool startTimers = false;
  {
    MutexLock lock(mutex_);
    id = timers_.add(now, intervalSeconds, std::move(work));
    if (pump_ == Pump::Host && timed && !stopped_) {
      startTimers = !std::exchange(timerThreadStarted_, true);
    }
    startMain = claimThreadStart();
    asleep_ = false;
  }
  wake_.notifyAll();
  if (startMain) startOwnThread();
  if (startTimers && !startDetachedThread("zr.timers", [self = shared_from_this()] { self->serveTimers(); })) {
    MutexLock lock(mutex_);
    timerThreadStarted_ = false;
  }
  return id;
}

void MainLoop::cancelTimer(TimerId id) {
  TimerList::Work cancelled;
  MutexLock lock(mutex_);
  cancelled = timers_.cancel(id);
}

double MainLoop::nextTimerDeadline() {
  MutexLock lock(mutex_);
  return timers_.nextDeadline();
}

void MainLoop::fireDueTimers() {
  sync([this] { fireDueOnMainThread(); });
}

void MainLoop::fireDueOnMainThread() {
  const double now = clock_->monotonicSeconds();
  for (;;) {
    TimerList::Work work;
    {
      MutexLock lock(mutex_);
      work = timers_.takeDue(now);
    }
    if (!work) return;
    context_->uncaught.guard(*work);
  }
}

void MainLoop::runAdopted() {
  if (pump_ != Pump::Adopted) return;
  mainThread_.store(std::this_thread::get_id(), std::memory_order_relaxed);
  pump();
}

bool MainLoop::claimThreadStart() {
  return pump_ == Pump::OwnThread && !stopped_ && !std::exchange(ownThreadStarted_, true);
}

bool MainLoop::startOwnThread() {
  if (startDetachedThread("zr.main", [self = shared_from_this()] { self->runOwnThread(); })) return true;
  {
    MutexLock lock(mutex_);
    ownThreadStarted_ = false;
  }
  syncCallChanged_.notifyAll();
  return false;
}

void MainLoop::runOwnThread() noexcept {
  mainThread_.store(std::this_thread::get_id(), std::memory_order_relaxed);
  pump();
  // The system may reuse the id of this thread.
  mainThread_.store(std::thread::id(), std::memory_order_relaxed);
}

void MainLoop::pump() {
  Task task;
  while (waitForWork(task)) runCounted(task);
}

bool MainLoop::waitForWork(Task& task) {
  const bool timed = clock_->runsByItself();
  for (;;) {
    // Call the host's clock with no lock held.
    const double now = timed ? clock_->monotonicSeconds() : 0;
    MutexLock lock(mutex_);
    if (stopped_) return false;
    double wait = -1;
    if (const double deadline = timers_.nextDeadline(); timed && deadline >= 0) {
      if (auto work = timers_.takeDue(now)) {
        context_->tasks.add();
        task = [work = std::move(work)] { (*work)(); };
        return true;
      }
      wait = deadline - now;
    }
    if (!tasks_.empty()) {
      task = std::move(tasks_.front());
      tasks_.popFront();
      return true;
    }
    asleep_ = true;
    if (wait < 0) {
      wake_.wait(mutex_);
    } else {
      wake_.waitFor(mutex_, wait);
    }
    asleep_ = false;
  }
}

void MainLoop::runCounted(Task& task) {
  context_->uncaught.guard(task);
  task.reset();
  context_->tasks.done();
}

void MainLoop::runWaiting() {
  std::size_t count = 0;
  {
    MutexLock lock(mutex_);
    count = tasks_.size();
  }
  while (count-- > 0 && runNext()) {
  }
}

bool MainLoop::runNext() {
  Task task;
  {
    MutexLock lock(mutex_);
    if (stopped_ || tasks_.empty()) return false;
    task = std::move(tasks_.front());
    tasks_.popFront();
  }
  runCounted(task);
  return true;
}

void MainLoop::serveTimers() noexcept {
  while (waitForDueTimer()) {
    try {
      enqueue([this] {
        fireDueOnMainThread();
        endFiring();
      });
    } catch (const std::bad_alloc&) {
      std::this_thread::sleep_for(kMemoryPause);
      endFiring();
    }
  }
}

void MainLoop::endFiring() {
  {
    MutexLock lock(mutex_);
    firingPosted_ = false;
  }
  wake_.notifyAll();
}

bool MainLoop::waitForDueTimer() {
  for (;;) {
    const double now = clock_->monotonicSeconds();
    MutexLock lock(mutex_);
    if (stopped_) return false;
    const double deadline = timers_.nextDeadline();
    if (firingPosted_ || deadline < 0) {
      wake_.wait(mutex_);
      continue;
    }
    const double wait = deadline - now;
    if (wait <= 0) {
      firingPosted_ = true;
      return true;
    }
    wake_.waitFor(mutex_, wait);
  }
}

void MainLoop::stop() {
  const auto self = shared_from_this();
  std::size_t unrun = 0;
  {
    MutexLock lock(mutex_);
    if (std::exchange(stopped_, true)) return;
    unrun = tasks_.size();
  }
  wake_.notifyAll();
  syncCallChanged_.notifyAll();
  context_->tasks.done(unrun);
}

void MainLoop::dropTasks() {
  TaskFifo dropped;
  MutexLock lock(mutex_);
  dropped.swap(tasks_);
}

}  // namespace zorvane::platform
