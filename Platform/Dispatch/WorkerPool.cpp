#include "Platform/Dispatch/WorkerPool.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "Platform/Dispatch/CurrentQueue.h"
#include "Platform/Dispatch/DetachedThread.h"

namespace zorvane::platform {

namespace {

constexpr int kMostThreads = 8;
// Background work never takes the threads that default work may need.
constexpr int kMostBackgroundTasks = 2;
// How long a thread without work stays awake: some ten microseconds, so that a stream of short tasks with short gaps
// costs its poster no wake.
constexpr int kLingerRounds = 200;
// How long work may wait behind a stuck task before another thread takes it.
constexpr double kTickSeconds = 0.001;

}  // namespace

WorkerPool::WorkerPool(std::shared_ptr<QueueContext> context)
    : context_(std::move(context)), cores_(static_cast<int>(std::max(1U, std::thread::hardware_concurrency()))) {}

void WorkerPool::post(Priority priority, Task task) {
  context_->tasks.add();
  Call call = Call::None;
  bool dropped = false;
  {
    MutexLock lock(mutex_);
    dropped = isShutDown();
    if (!dropped) {
      (priority == Priority::Default ? default_ : background_).push(std::move(task));
      updateHint();
      call = neededCall();
    }
  }
  if (dropped) {
    task.reset();  // NOLINT(bugprone-use-after-move): what is dropped was not moved
    context_->tasks.done();
  }
  carryOut(call);
}

void WorkerPool::shutDown() {
  TaskFifo dropped[2];
  {
    MutexLock lock(mutex_);
    shutDown_.store(true, std::memory_order_relaxed);
    dropped[0].swap(default_);
    dropped[1].swap(background_);
    updateHint();
  }
  wake_.notifyAll();
  tick_.notifyAll();
  for (TaskFifo& tasks : dropped) {
    const std::size_t count = tasks.size();
    while (!tasks.empty()) tasks.popFront();
    context_->tasks.done(count);
  }
}

std::size_t WorkerPool::runnable() const {
  const auto background = static_cast<std::size_t>(kMostBackgroundTasks - runningBackground_);
  return default_.size() + std::min(background_.size(), background);
}

WorkerPool::Call WorkerPool::neededCall() {
  if (runnable() == 0 || searching_ > 0) return Call::None;
  const bool search = running_ == 0;
  if (!search && watching_) return Call::None;
  const bool wake = asleep_ > 0;
  if (!wake && threads_ == kMostThreads) return Call::None;
  if (search) {
    ++searching_;
  } else {
    watching_ = true;
  }
  if (wake) {
    --asleep_;
    ++(search ? searchNotes_ : watchNotes_);
    return Call::Wake;
  }
  ++threads_;
  return search ? Call::StartSearcher : Call::StartWatcher;
}

void WorkerPool::carryOut(Call call) {
  if (call == Call::None) return;
  if (call == Call::Wake) return wake_.notifyOne();
  const Role role = call == Call::StartSearcher ? Role::Searcher : Role::Watcher;
  if (startDetachedThread("zr.worker", [self = shared_from_this(), role] { self->runThread(role); })) return;
  // The next post tries again.
  MutexLock lock(mutex_);
  --threads_;
  if (role == Role::Searcher) {
    --searching_;
  } else {
    watching_ = false;
  }
}

void WorkerPool::runThread(Role role) noexcept {
  Item item;
  while (take(item, role)) {
    {
      const CurrentQueue::Scope scope(identity(item.priority));
      context_->uncaught.guard(item.task);
      item.task.reset();
    }
    noteFinished(item.priority);
    context_->tasks.done();
    role = Role::Searcher;
  }
}

void WorkerPool::noteFinished(Priority priority) {
  MutexLock lock(mutex_);
  --running_;
  if (priority == Priority::Background) --runningBackground_;
  ++searching_;
}

bool WorkerPool::take(Item& item, Role role) {
  bool taken = false;
  Call call = Call::None;
  {
    MutexLock lock(mutex_);
    if (role == Role::Watcher) rest(role);
    taken = tryTake(item);
    if (!taken && !lingering_) {
      linger();
      taken = tryTake(item);
    }
    while (!taken && !isShutDown()) {
      --searching_;
      ++asleep_;
      rest(Role::Searcher);
      taken = tryTake(item);
    }
    if (taken) call = neededCall();
  }
  carryOut(call);
  return taken;
}

bool WorkerPool::tryTake(Item& item) {
  if (runnable() == 0) return false;
  item.priority = default_.empty() ? Priority::Background : Priority::Default;
  TaskFifo& tasks = default_.empty() ? background_ : default_;
  item.task = std::move(tasks.front());
  tasks.popFront();
  --searching_;
  ++running_;
  if (item.priority == Priority::Background) ++runningBackground_;
  ++taken_;
  updateHint();
  return true;
}

void WorkerPool::linger() {
  lingering_ = true;
  mutex_.unlock();
  for (int round = 0; round < kLingerRounds && !isBehind() && !isShutDown(); ++round) std::this_thread::yield();
  mutex_.lock();
  lingering_ = false;
}

void WorkerPool::rest(Role role) {
  while (!isShutDown()) {
    if (role == Role::Watcher) {
      if (watch()) return;
      ++asleep_;
      role = Role::Searcher;
    } else if (searchNotes_ > 0) {
      --searchNotes_;
      return;
    } else if (watchNotes_ > 0) {
      --watchNotes_;
      role = Role::Watcher;
    } else {
      wake_.wait(mutex_);
    }
  }
}

// Looks in from time to time. Help is needed when nothing was taken though work stood waiting, and, while there are
// cores to spare, when not all that stood waiting was taken.
bool WorkerPool::watch() {
  bool help = false;
  while (!help) {
    const std::uint64_t takenBefore = taken_;
    const std::size_t waitedBefore = runnable();
    tick_.waitFor(mutex_, kTickSeconds);
    const std::uint64_t taken = taken_ - takenBefore;
    if (isShutDown() || (taken == 0 && runnable() == 0)) break;
    help = runnable() > 0 && (taken == 0 || (taken < waitedBefore && running_ < cores_));
  }
  watching_ = false;
  if (help) ++searching_;
  return help;
}

}  // namespace zorvane::platform
