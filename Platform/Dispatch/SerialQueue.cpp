#include "Platform/Dispatch/SerialQueue.h"

#include <new>
#include <thread>
#include <utility>

#include "Platform/Dispatch/CurrentQueue.h"

namespace zorvane::platform {

// A queue with tasks has exactly one task in the pool, its turn, which runs them.
struct SerialQueue::State {
  State(std::shared_ptr<WorkerPool> thePool, std::shared_ptr<QueueContext> theContext)
      : pool(std::move(thePool)), context(std::move(theContext)) {}

  // Throws std::bad_alloc without memory; the task is unchanged then.
  static void push(const std::shared_ptr<State>& self, Task&& task);
  // Runs the tasks posted so far. False when there were none; the turn is over then.
  bool runBatch();
  // Destroys the waiting tasks.
  void drop();

  const std::shared_ptr<WorkerPool> pool;
  const std::shared_ptr<QueueContext> context;

  Mutex mutex;
  TaskFifo incoming ZR_GUARDED_BY(mutex);
  bool hasTurn ZR_GUARDED_BY(mutex) = false;
  // Used by the turn only.
  TaskFifo batch;
};

struct SerialQueue::Turn {
  explicit Turn(std::shared_ptr<State> theState) noexcept : state(std::move(theState)) {}
  Turn(Turn&&) noexcept = default;
  // The pool destroys a turn that does not run any more.
  ~Turn() {
    if (state && state->pool->isShutDown()) state->drop();
  }

  void operator()() {
    const std::shared_ptr<State> self = std::move(state);
    const CurrentQueue::Scope scope(self.get());
    while (self->runBatch()) {
      if (!self->pool->isBehind()) continue;
      try {
        return self->pool->post(Priority::Default, Turn(self), WorkerPool::Urgency::Now);
      } catch (const std::bad_alloc&) {  // goes on here
      }
    }
  }

  std::shared_ptr<State> state;
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

void SerialQueue::State::drop() {
  TaskFifo dropped;
  {
    MutexLock lock(mutex);
    dropped.swap(incoming);
    hasTurn = false;
  }
  const std::size_t count = dropped.size();
  while (!dropped.empty()) dropped.popFront();
  context->tasks.done(count);
}

SerialQueue::SerialQueue(std::string label, std::shared_ptr<WorkerPool> pool, std::shared_ptr<QueueContext> context)
    : Queue(std::move(label)), state_(std::make_shared<State>(std::move(pool), std::move(context))) {}

void SerialQueue::State::push(const std::shared_ptr<State>& self, Task&& task) {
  Task turn;
  MutexLock lock(self->mutex);
  // First, because a turn without a task does no harm.
  if (!self->hasTurn) {
    turn = Turn(self);
    self->pool->post(Priority::Default, std::move(turn), WorkerPool::Urgency::Now);
    self->hasTurn = true;
  }
  self->incoming.push(std::move(task));
  self->context->tasks.add();
}

void SerialQueue::async(Task task) {
  WorkerPool& pool = *state_->pool;
  if (pool.isShutDown()) return;
  if (!pool.hasBatches() || WorkerPool::isWorker()) return State::push(state_, std::move(task));
  // Tasks that the calling thread has posted to wait may post to this queue. This one comes behind them. Then nobody is
  // left to tell that there is no memory, so it waits for some.
  pool.post(
      Priority::Default,
      [state = state_, task = std::move(task)]() mutable {
        while (!state->pool->isShutDown()) {
          try {
            return State::push(state, std::move(task));
          } catch (const std::bad_alloc&) {
            std::this_thread::sleep_for(kMemoryPause);
          }
        }
      },
      WorkerPool::Urgency::Soon);
  pool.hurry();
}

bool SerialQueue::isCurrent() const {
  return CurrentQueue::is(state_.get());
}

}  // namespace zorvane::platform
