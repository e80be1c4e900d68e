// std::mutex, its guard and its condition variable as the thread-safety analysis knows them.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "Platform/Dispatch/ThreadAnnotations.h"

namespace zorvane::platform {

// How many of these locks the calling thread holds, so that a test can see that nothing outside is called under one.
// Counted only where ZR_COUNT_LOCKS is defined, for the whole build; elsewhere it is 0.
#if defined(ZR_COUNT_LOCKS)
inline constexpr bool kLocksAreCounted = true;
inline thread_local int locksHeldByThread = 0;
#else
inline constexpr bool kLocksAreCounted = false;
inline constexpr int locksHeldByThread = 0;
#endif

// For locks held briefly, without I/O or waiting.
class ZR_CAPABILITY("mutex") Mutex {
 public:
  void lock() ZR_ACQUIRE() {
    // Locks are held for less time than it takes to go to sleep and to be woken.
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

// A wait gives the mutex up and has it again when it returns. It may return for no reason: wait in a loop.
class Condition {
 public:
  void wait(Mutex& mutex) ZR_REQUIRES(mutex) {
    std::unique_lock lock(mutex.mutex_, std::adopt_lock);
    condition_.wait(lock);
    lock.release();
  }
  // Returns after so many seconds of real time at the latest; a wait of more than an hour may return after an hour.
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
