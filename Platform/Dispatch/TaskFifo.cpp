#include "Platform/Dispatch/TaskFifo.h"

#include <utility>

namespace zorvane::platform {

TaskFifo::~TaskFifo() {
  deleteChain(head_);
  deleteChain(spares_);
}

void TaskFifo::push(Task&& task) {
  if (!tail_ || tailEnd_ == kChunkTasks) appendChunk();
  tail_->tasks[tailEnd_++] = std::move(task);
  ++size_;
}

void TaskFifo::popFront() noexcept {
  head_->tasks[headBegin_++].reset();
  --size_;
  if (headBegin_ == kChunkTasks) {
    removeHead();
  } else if (size_ == 0) {
    headBegin_ = tailEnd_ = 0;
  }
}

void TaskFifo::swap(TaskFifo& other) noexcept {
  std::swap(head_, other.head_);
  std::swap(tail_, other.tail_);
  std::swap(spares_, other.spares_);
  std::swap(headBegin_, other.headBegin_);
  std::swap(tailEnd_, other.tailEnd_);
  std::swap(size_, other.size_);
  std::swap(spareCount_, other.spareCount_);
}

void TaskFifo::deleteChain(Chunk* chunk) noexcept {
  while (chunk) delete std::exchange(chunk, chunk->next);
}

void TaskFifo::appendChunk() {
  Chunk* chunk = spares_;
  if (chunk) {
    spares_ = std::exchange(chunk->next, nullptr);
    --spareCount_;
  } else {
    chunk = new Chunk;
  }
  (tail_ ? tail_->next : head_) = chunk;
  tail_ = chunk;
  tailEnd_ = 0;
}

void TaskFifo::removeHead() noexcept {
  Chunk* const emptied = std::exchange(head_, head_->next);
  if (!head_) tail_ = nullptr;
  headBegin_ = 0;
  if (spareCount_ == kSparesKept) {
    delete emptied;
    return;
  }
  emptied->next = std::exchange(spares_, emptied);
  ++spareCount_;
}

}  // namespace zorvane::platform
