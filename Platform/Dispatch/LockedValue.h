// A value that several threads read and replace.
#pragma once

#include <utility>

#include "Platform/Dispatch/Mutex.h"

namespace zorvane::platform {

// Thread-safe. For values whose copy is cheap and calls no host code, such as a shared pointer.
template <typename T>
class LockedValue {
 public:
  // Starts with the given value, else with T's default.
  LockedValue() = default;
  explicit LockedValue(T value) : value_(std::move(value)) {}

  // A copy.
  T get() const {
    MutexLock lock(mutex_);
    return value_;
  }
  // Destroys the old value after the lock is released.
  void set(T value) {
    MutexLock lock(mutex_);
    std::swap(value_, value);
  }

 private:
  mutable Mutex mutex_;
  T value_ ZR_GUARDED_BY(mutex_){};
};

}  // namespace zorvane::platform
