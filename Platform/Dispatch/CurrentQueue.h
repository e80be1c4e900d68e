// Which queue the calling thread works for.
#pragma once

#include <utility>

namespace zorvane::platform {

// A queue is told apart by an address that outlives its tasks.
class CurrentQueue {
 public:
  static bool is(const void* queue) noexcept { return current_ == queue; }

  // For the life of the scope the thread works for that queue, afterwards for the one before.
  class Scope {
   public:
    explicit Scope(const void* queue) noexcept : outer_(std::exchange(current_, queue)) {}
    ~Scope() { current_ = outer_; }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    const void* outer_;
  };

 private:
  static inline thread_local const void* current_ = nullptr;
};

}  // namespace zorvane::platform
