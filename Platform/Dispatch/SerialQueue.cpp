#include "Platform/Dispatch/SerialQueue.h"

#include <new>
#include <utility>

#include "Platform/Dispatch/CurrentQueue.h"

namespace zorvane::platform {

// A queue with tasks has exactly one task in the pool, called its turn. The turn runs them.
struct SerialQueue::State {
  State(std::shared_ptr<WorkerPool> thePool, std::shared_ptr<QueueContext> theContext)
      : pool(std::move(thePool)), context(std::move(theContext)) {}

  // False without memory.
  static bool postTurn(const std::shared_ptr<State>& self) noexcept {
    try {
      self->pool->post(
          Priority::Default, [self] { takeTurn(self); }, WorkerPool::Urgency::Now);
      return true;
    } catch (const std::bad_alloc&) {
      return false;
    }
  }
  static void takeTurn(const std::shared_ptr<State>& self) {
    const CurrentQueue::Scope scope(self.get());
    while (self->runBatch()) {
      if (self->pool->isBehind() && postTurn(self)) return;
    }
  }
  static void push(const std::shared_ptr<State>& self, Task&& task);
  // Runs the tasks posted so far. False when there were none; the turn is over then.
  bool runBatch();

  const std::shared_ptr<WorkerPool> pool;
  const std::shared_ptr<QueueContext> context;

  Mutex mutex;
  TaskFifo incoming ZR_GUARDED_BY(mutex);
  bool hasTurn ZR_GUARDED_BY(mutex) = false;
  // Used by the turn only.
  TaskFifo batch;
};

bool SerialQueue::State::runBatch() {
  {
    MutexLock lock(mutex);
    if (incoming.empty()) {
      hasTurn = false;
      return false;
    }
    batch.swap(incoming);
  }
  const std::size_t count = batch.size();
  while (!batch.empty()) {
    if (!pool->isShutDown()) context->uncaught.guard(batch.front());
    batch.popFront();
  }
  context->tasks.done(count);
  return true;
}

SerialQueue::SerialQueue(std::string label, std::shared_ptr<WorkerPool> pool, std::shared_ptr<QueueContext> context)
    : Queue(std::move(label)), state_(std::make_shared<State>(std::move(pool), std::move(context))) {}

void SerialQueue::State::push(const std::shared_ptr<State>& self, Task&& task) {
  bool needsTurn = false;
  {
    MutexLock lock(self->mutex);
    self->incoming.push(std::move(task));
    self->context->tasks.add();
    needsTurn = !std::exchange(self->hasTurn, true);
  }
  if (!needsTurn || postTurn(self)) return;
  // The next task posts a turn for both.
  MutexLock lock(self->mutex);
  self->hasTurn = false;
}

void SerialQueue::async(Task task) {
  WorkerPool& pool = *state_->pool;
  if (pool.isShutDown()) return;
  if (!pool.hasBatches() || WorkerPool::isWorker()) return State::push(state_, std::move(task));
  // Tasks that the calling thread has posted to wait may post to this queue. This one comes behind them.
  pool.post(
      Priority::Default, [state = state_, task = std::move(task)]() mutable { State::push(state, std::move(task)); },
      WorkerPool::Urgency::Soon);
  pool.hurry();
}

bool SerialQueue::isCurrent() const {
  return CurrentQueue::is(state_.get());
}

}  // namespace zorvane::platform
