// std::mutex and its guard as the thread-safety analysis knows them.
#pragma once

#include <mutex>

#include "Platform/Dispatch/ThreadAnnotations.h"

namespace zorvane::platform {

class ZR_CAPABILITY("mutex") Mutex {
 public:
  void lock() ZR_ACQUIRE() { mutex_.lock(); }
  void unlock() ZR_RELEASE() { mutex_.unlock(); }

 private:
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

}  // namespace zorvane::platform
