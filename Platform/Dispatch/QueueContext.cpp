#include "Platform/Dispatch/QueueContext.h"

namespace zorvane::platform {

// done() lowers the count, then reads waiters_. waitForNone() raises waiters_, then reads the count. All of it is
// sequentially consistent, so at least one of the two sees the change of the other.
void TaskCounter::done(std::size_t count) noexcept {
  if (count == 0 || outstanding_.fetch_sub(count) != count || waiters_.load() == 0) return;
  MutexLock lock(mutex_);
  changed_.notifyAll();
}

void TaskCounter::waitForNone() {
  waiters_.fetch_add(1);
  {
    MutexLock lock(mutex_);
    while (outstanding_.load() != 0 && !released_) changed_.wait(mutex_);
  }
  waiters_.fetch_sub(1);
}

void TaskCounter::release() {
  MutexLock lock(mutex_);
  released_ = true;
  changed_.notifyAll();
}

}  // namespace zorvane::platform
