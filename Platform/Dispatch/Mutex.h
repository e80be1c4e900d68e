// std::mutex, its guard and its condition variable, annotated for Clang's thread-safety analysis.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "Platform/Dispatch/ThreadAnnotations.h"

namespace zorvane::platform {

// The number of mutexes that the calling thread holds. Tests use it to check that no host code is called under a lock.
// Always 0 unless ZR_COUNT_LOCKS is defined; CMake defines it in debug and sanitizer builds.
#if defined(ZR_COUNT_LOCKS)
inline constexpr bool kLocksAreCounted = true;
inline thread_local int locksHeldByThread = 0;
#else
inline constexpr bool kLocksAreCounted = false;
inline constexpr int locksHeldByThread = 0;
#endif

// Most owners hold it for a few instructions. Three hold it over file input and output with fsync: see the table of
// locks in docs/architecture.md.
class ZR_CAPABILITY("mutex") Mutex {
 public:
  void lock() ZR_ACQUIRE() {
    // Most locks are released in less time than going to sleep and waking up take.
    for (int attempt = 0; attempt < kSpins; ++attempt) {
      if (mutex_.try_lock()) return count(1);
      pause();
    }
    mutex_.lock();
    count(1);
  }
  void unlock() ZR_RELEASE() {
    count(-1);
    mutex_.unlock();
  }

 private:
  friend class Condition;
  static constexpr int kSpins = 100;

  static void count([[maybe_unused]] int change) noexcept {
#if defined(ZR_COUNT_LOCKS)
    locksHeldByThread += change;
#endif
  }
  static void pause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ volatile("yield");
#endif
  }

  std::mutex mutex_;
};

class ZR_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ZR_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() ZR_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

// A wait releases the mutex and locks it again before it returns. It may wake up spuriously: wait in a loop.
class Condition {
 public:
  void wait(Mutex& mutex) ZR_REQUIRES(mutex) {
    std::unique_lock lock(mutex.mutex_, std::adopt_lock);
    condition_.wait(lock);
    lock.release();
  }
  // Waits at most that many seconds of real time, and never longer than an hour.
  void waitFor(Mutex& mutex, double seconds) ZR_REQUIRES(mutex) {
    const std::chrono::duration<double> wait(std::clamp(seconds, 0.0, 3600.0));
    std::unique_lock lock(mutex.mutex_, std::adopt_lock);
    condition_.wait_for(lock, std::chrono::ceil<std::chrono::nanoseconds>(wait));
    lock.release();
  }
  void notifyOne() noexcept { condition_.notify_one(); }
  void notifyAll() noexcept { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace zorvane::platform
