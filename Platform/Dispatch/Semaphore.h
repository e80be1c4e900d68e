#pragma once

#include <chrono>

#if defined(__GLIBC__)
#include <semaphore.h>
#include <time.h>

#include <cerrno>
#else
#include "Platform/Dispatch/Mutex.h"
#endif

namespace zorvane::platform {

// A counting semaphore that starts at 0. No call spins.
class Semaphore {
 public:
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

#if defined(__GLIBC__)
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
  // False if the time is over first. Less than a second.
  bool waitFor(std::chrono::nanoseconds time) noexcept {
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_nsec += static_cast<long>(time.count());
    if (end.tv_nsec >= 1'000'000'000) {
      end.tv_nsec -= 1'000'000'000;
      ++end.tv_sec;
    }
    int result = 0;
    while ((result = sem_clockwait(&semaphore_, CLOCK_MONOTONIC, &end)) != 0 && errno == EINTR) {
    }
    return result == 0;
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
  // False if the time is over first, or now and then earlier.
  bool waitFor(std::chrono::nanoseconds time) {
    MutexLock lock(mutex_);
    if (count_ == 0) posted_.waitFor(mutex_, std::chrono::duration<double>(time).count());
    if (count_ == 0) return false;
    --count_;
    return true;
  }

 private:
  Mutex mutex_;
  Condition posted_;
  unsigned count_ ZR_GUARDED_BY(mutex_) = 0;
#endif
};

}  // namespace zorvane::platform
