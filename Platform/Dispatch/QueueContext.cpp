#include "Platform/Dispatch/QueueContext.h"

namespace zorvane::platform {

// Who brings the count to 0 looks for waiters after it, who waits looks at the count after announcing itself, all of it
// sequentially consistent: one of the two sees the other.
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
