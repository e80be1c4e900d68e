// First in, first out: the tasks of one queue. Not thread-safe.
#pragma once

#include <cstddef>

#include "Platform/Dispatch/Task.h"

namespace zorvane::platform {

// Tasks do not move while they are queued. Allocates chunks of tasks and keeps a few for reuse, so that a queue that is
// emptied as fast as it is filled allocates nothing.
class TaskFifo {
 public:
  TaskFifo() noexcept = default;
  TaskFifo(const TaskFifo&) = delete;
  TaskFifo& operator=(const TaskFifo&) = delete;
  ~TaskFifo();

  bool empty() const noexcept { return size_ == 0; }
  std::size_t size() const noexcept { return size_; }
  void push(Task&& task);
  // front() and popFront() need a task.
  Task& front() noexcept { return head_->tasks[headBegin_]; }
  void popFront() noexcept;
  void swap(TaskFifo& other) noexcept;

 private:
  static constexpr std::size_t kChunkTasks = 16;
  static constexpr std::size_t kSparesKept = 4;
  struct Chunk {
    Chunk* next = nullptr;
    Task tasks[kChunkTasks];
  };

  static void deleteChain(Chunk* chunk) noexcept;
  void appendChunk();
  void removeHead() noexcept;

  Chunk* head_ = nullptr;
  Chunk* tail_ = nullptr;
  Chunk* spares_ = nullptr;
  std::size_t headBegin_ = 0;
  std::size_t tailEnd_ = 0;
  std::size_t size_ = 0;
  std::size_t spareCount_ = 0;
};

}  // namespace zorvane::platform
