// Which queue the calling thread works for.
#pragma once

#include <utility>

namespace zorvane::platform {

// Identifies a queue by an address, which must outlive the tasks of the queue.
class CurrentQueue {
 public:
  static bool is(const void* queue) noexcept { return current_ == queue; }

  // Sets the current queue of the thread, and restores the previous one at the end of the scope.
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
