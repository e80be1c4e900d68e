// First in, first out: the tasks of one queue. Not thread-safe.
#pragma once

#include <cstddef>

#include "Platform/Dispatch/Task.h"

namespace zorvane::platform {

// Tasks never move once they are in. Memory is taken for several tasks at a time and a little of it is kept for reuse,
// so that a queue that is emptied as it is filled allocates nothing.
class TaskFifo {
 public:
  TaskFifo() noexcept = default;
  TaskFifo(const TaskFifo&) = delete;
  TaskFifo& operator=(const TaskFifo&) = delete;
  ~TaskFifo();

  bool empty() const noexcept { return size_ == 0; }
  std::size_t size() const noexcept { return size_; }
  void push(Task&& task);
  // Of a queue that is not empty.
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
