#include "Platform/Dispatch/WorkerPool.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "Platform/Dispatch/CurrentQueue.h"
#include "Platform/Dispatch/DetachedThread.h"

namespace zorvane::platform {

namespace {

constexpr int kMaxWorkers = 8;
// Leaves workers free for default tasks.
constexpr int kMaxBackgroundTasks = 2;
// How long tasks wait behind a stuck one before another worker is called. At a steady pace of short tasks the monitor
// stays awake, so that no post has to call it. Then it waits longer from check to check, because each costs energy.
constexpr double kMonitorSeconds = 0.01;
constexpr double kLongestMonitorSeconds = 0.08;
constexpr std::chrono::milliseconds kLinger{8};

}  // namespace

WorkerPool::WorkerPool(std::shared_ptr<QueueContext> context)
    : context_(std::move(context)), monitorSeconds_(kMonitorSeconds) {}

void WorkerPool::post(Priority priority, Task&& task, Urgency urgency) {
  Call call = Call::None;
  {
    MutexLock lock(mutex_);
    if (isShutDown()) return;
    if (urgency == Urgency::Soon && priority == Priority::Default) {
      addToBatch(std::move(task));
    } else {
      (priority == Priority::Default ? default_ : background_).push(std::move(task));
      if (priority == Priority::Default) openBatch_ = nullptr;
      context_->tasks.add();
    }
    updateHint();
    call = neededCall(urgency);
  }
  carryOut(call);
}

void WorkerPool::addToBatch(Task&& task) {
  if (openBatch_) return openBatch_->tasks.push(std::move(task));
  auto batch = spareBatch_ ? std::move(spareBatch_) : std::make_unique<Batch>();
  batch->tasks.push(std::move(task));
  Batch* const opened = batch.get();
  default_.push([this, batch = std::move(batch)]() mutable { runBatch(std::move(batch)); });
  context_->tasks.add();
  opened->number = openedBatches_++;
  openBatch_ = opened;
  hasBatches_.store(true, std::memory_order_relaxed);
}

void WorkerPool::runBatch(std::unique_ptr<Batch> batch) {
  {
    MutexLock lock(mutex_);
    if (batch->number != endedBatches_) {
      std::unique_ptr<Batch>* place = &earlyBatches_;
      while (*place && (*place)->number < batch->number) place = &(*place)->next;
      batch->next = std::move(*place);
      *place = std::move(batch);
      return;
    }
  }
  while (batch) {
    TaskFifo& tasks = batch->tasks;
    isInBatch_ = true;
    for (; !tasks.empty() && !isShutDown(); tasks.popFront()) context_->uncaught.guard(tasks.front());
    isInBatch_ = false;
    // Only then tasks are left. They are destroyed without the lock.
    if (isShutDown()) batch.reset();
    MutexLock lock(mutex_);
    hasBatches_.store(++endedBatches_ != openedBatches_, std::memory_order_relaxed);
    spareBatch_.swap(batch);
    batch.reset();
    if (!earlyBatches_ || earlyBatches_->number != endedBatches_) continue;
    batch = std::move(earlyBatches_);
    earlyBatches_ = std::move(batch->next);
  }
}

void WorkerPool::hurry() {
  Call call = Call::None;
  {
    MutexLock lock(mutex_);
    call = neededCall();
  }
  carryOut(call);
}

void WorkerPool::shutDown() {
  TaskFifo dropped[2];
  int sleepers = 0;
  {
    MutexLock lock(mutex_);
    if (shutDown_.exchange(true, std::memory_order_relaxed)) return;
    sleepers = asleep_;
    dropped[0].swap(default_);
    dropped[1].swap(background_);
    openBatch_ = nullptr;
    updateHint();
  }
  for (; sleepers > 0; --sleepers) workerCalled_.post();
  monitorCalled_.notifyAll();
  for (TaskFifo& tasks : dropped) {
    const std::size_t count = tasks.size();
    while (!tasks.empty()) tasks.popFront();
    context_->tasks.done(count);
  }
}

void WorkerPool::runWorker() noexcept {
  isWorker_ = true;
  Item item;
  while (take(item)) {
    bool hasNext = false;
    do {
      {
        const CurrentQueue::Scope scope(identity(item.priority));
        context_->uncaught.guard(item.task);
        item.task.reset();
      }
      hasNext = takeNext(item);
      context_->tasks.done();
    } while (hasNext);
  }
}

bool WorkerPool::take(Item& item) {
  Call call = Call::None;
  {
    MutexLock lock(mutex_);
    while (!tryTake(item)) {
      if (isShutDown()) return false;
      sleepUntilCalled();
    }
    call = neededCall();
  }
  carryOut(call);
  return true;
}

bool WorkerPool::takeNext(Item& item) {
  Call call = Call::None;
  {
    MutexLock lock(mutex_);
    --running_;
    if (item.priority == Priority::Background) --runningBackground_;
    ++looking_;
    if (!tryTake(item)) return false;
    call = neededCall();
  }
  carryOut(call);
  return true;
}

bool WorkerPool::tryTake(Item& item) {
  if (runnable() == 0) return false;
  item.priority = default_.empty() ? Priority::Background : Priority::Default;
  TaskFifo& tasks = default_.empty() ? background_ : default_;
  item.task = std::move(tasks.front());
  tasks.popFront();
  if (default_.empty()) openBatch_ = nullptr;
  updateHint();
  ++taken_;
  --looking_;
  ++running_;
  if (item.priority == Priority::Background) ++runningBackground_;
  return true;
}

void WorkerPool::sleepUntilCalled() {
  --looking_;
  ++asleep_;
  const bool lingers = shouldLinger_ && !isLingering_;
  if (lingers) isLingering_ = true;
  const auto start = std::chrono::steady_clock::now();
  mutex_.unlock();
  bool isCalled = true;
  if (lingers) {
    isCalled = workerCalled_.waitFor(kLinger);
  } else {
    workerCalled_.wait();
  }
  mutex_.lock();
  if (lingers) isLingering_ = false;
  // Who calls a worker counts it as looking again.
  if (!isCalled && asleep_ > 0) {
    --asleep_;
    ++looking_;
  } else if (!isCalled) {
    // All that slept are called, this one too.
    workerCalled_.wait();
  }
  shouldLinger_ = lingers ? runnable() > 0 : std::chrono::steady_clock::now() - start < kLinger;
}

void WorkerPool::runMonitor() noexcept {
  const int cores = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
  while (!isShutDown()) carryOut(checkProgress(cores));
}

WorkerPool::Call WorkerPool::checkProgress(int cores) {
  MutexLock lock(mutex_);
  while (!monitoring_ && !isShutDown()) monitorCalled_.wait(mutex_);
  const std::uint64_t takenBefore = taken_;
  const std::size_t waitingBefore = runnable();
  if (!isShutDown()) monitorCalled_.waitFor(mutex_, monitorSeconds_);

  const std::uint64_t taken = taken_ - takenBefore;
  const bool waiting = runnable() > 0;
  monitorSeconds_ = waiting || taken == 0 ? kMonitorSeconds : std::min(2 * monitorSeconds_, kLongestMonitorSeconds);
  // Slow counts only while a core may be free.
  const bool stuck = taken == 0;
  const bool slow = taken < waitingBefore && running_ < cores;
  if (waiting && (stuck || slow) && looking_ == 0) {
    // The called worker calls the monitor again if tasks still wait.
    monitoring_ = false;
    return callWorker();
  }
  if (!waiting && taken == 0) monitoring_ = false;
  return Call::None;
}

std::size_t WorkerPool::runnable() const {
  const auto background = static_cast<std::size_t>(kMaxBackgroundTasks - runningBackground_);
  return default_.size() + std::min(background_.size(), background);
}

WorkerPool::Call WorkerPool::neededCall(Urgency urgency) {
  if (runnable() == 0 || looking_ > 0) return Call::None;
  if (running_ == 0) {
    return isLingering_ && urgency == Urgency::Soon ? Call::None : callWorker();
  }
  if (monitoring_ || running_ == kMaxWorkers) return Call::None;
  // This worker is back soon. Only the first start is its own, so that no other thread has to wait for it.
  if (isInBatch_ && monitorStarted_) return Call::None;
  monitoring_ = true;
  return std::exchange(monitorStarted_, true) ? Call::WakeMonitor : Call::StartMonitor;
}

WorkerPool::Call WorkerPool::callWorker() {
  if (looking_ + running_ == kMaxWorkers) return Call::None;
  ++looking_;
  if (asleep_ == 0) return Call::StartWorker;
  --asleep_;
  return Call::WakeWorker;
}

void WorkerPool::carryOut(Call call) {
  switch (call) {
    case Call::None:
      break;
    case Call::WakeWorker:
      workerCalled_.post();
      break;
    case Call::WakeMonitor:
      monitorCalled_.notifyOne();
      break;
    case Call::StartWorker:
      if (!startDetachedThread("zr.worker", [self = shared_from_this()] { self->runWorker(); })) {
        {
          MutexLock lock(mutex_);
          --looking_;
          // One may have gone to sleep meanwhile, and a post have counted on the new one.
          if (asleep_ == 0) return;
          call = neededCall();
        }
        carryOut(call);
      }
      break;
    case Call::StartMonitor:
      if (!startDetachedThread("zr.monitor", [self = shared_from_this()] { self->runMonitor(); })) {
        MutexLock lock(mutex_);
        monitorStarted_ = monitoring_ = false;
      }
      break;
  }
}

}  // namespace zorvane::platform
