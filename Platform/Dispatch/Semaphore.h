#pragma once

#if defined(__linux__)
#include <semaphore.h>

#include <cerrno>
#else
#include "Platform/Dispatch/Mutex.h"
#endif

namespace zorvane::platform {

// A counting semaphore that starts at 0. Neither call spins.
class Semaphore {
 public:
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

#if defined(__linux__)
  // A condition variable would cost the woken thread one more system call, to unlock its mutex.
  Semaphore() noexcept {
    sem_init(&semaphore_, 0, 0);
  }
  ~Semaphore() {
    sem_destroy(&semaphore_);
  }
  void post() noexcept {
    sem_post(&semaphore_);
  }
  void wait() noexcept {
    while (sem_wait(&semaphore_) != 0 && errno == EINTR) {
    }
  }

 private:
  sem_t semaphore_;
#else
  Semaphore() = default;
  void post() {
    {
      MutexLock lock(mutex_);
      ++count_;
    }
    posted_.notifyOne();
  }
  void wait() {
    MutexLock lock(mutex_);
    while (count_ == 0) posted_.wait(mutex_);
    --count_;
  }

 private:
  Mutex mutex_;
  Condition posted_;
  unsigned count_ ZR_GUARDED_BY(mutex_) = 0;
#endif
};

}  // namespace zorvane::platform
