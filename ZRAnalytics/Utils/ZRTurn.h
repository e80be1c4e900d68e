// Lets one thread at a time do a piece of work; recursive. No mutex is held during the work.
#pragma once

#include <thread>

#include "Platform/Dispatch/Mutex.h"

namespace zorvane {

// Use instead of a mutex for work that calls host objects, where no lock may be held.
class ZRTurn {
 public:
  // Waits until no other thread has the turn. A thread that has it already goes on at once.
  void take() {
    platform::MutexLock lock(mutex_);
    const auto thread = std::this_thread::get_id();
    while (depth_ != 0 && owner_ != thread) released_.wait(mutex_);
    owner_ = thread;
    ++depth_;
  }
  void release() {
    {
      platform::MutexLock lock(mutex_);
      if (--depth_ != 0) return;
    }
    released_.notifyAll();
  }

  // Has the turn while it exists.
  class Scope {
   public:
    explicit Scope(ZRTurn& turn) : turn_(turn) { turn_.take(); }
    ~Scope() { turn_.release(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    ZRTurn& turn_;
  };

 private:
  platform::Mutex mutex_;
  platform::Condition released_;
  std::thread::id owner_ ZR_GUARDED_BY(mutex_);
  int depth_ ZR_GUARDED_BY(mutex_) = 0;
};

}  // namespace zorvane
