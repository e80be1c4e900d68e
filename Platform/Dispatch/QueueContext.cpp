#include "Platform/Dispatch/QueueContext.h"

#include <chrono>
#include <utility>

namespace zorvane::platform {

// done() lowers the count, then reads waiters_. waitForNone() raises waiters_, then reads the count. All of it is
// sequentially consistent, so at least one of the two sees the change of the other.
void TaskCounter::done(std::size_t count) noexcept {
  if (count == 0 || outstanding_.fetch_sub(count) != count || waiters_.load() == 0) return;
  MutexLock lock(mutex_);
  changed_.notifyAll();
}

bool TaskCounter::waitForNone(double seconds, const std::function<void()>& runMainTasks) {
  const auto start = std::chrono::steady_clock::now();
  waiters_.fetch_add(1);
  bool isNone = false;
  double left = seconds;
  for (;;) {
    if (runMainTasks) runMainTasks();
    MutexLock lock(mutex_);
    isNone = outstanding_.load() == 0;
    left = seconds - std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (isNone || released_ || left <= 0) break;
    // A task that came after runMainTasks() runs in the next round.
    if (!runMainTasks || !std::exchange(mainTaskWaits_, false)) changed_.waitFor(mutex_, left);
  }
  waiters_.fetch_sub(1);
  // The count of now may be that of tasks which came after it was 0.
  return isNone;
}

void TaskCounter::mainTaskWaits() noexcept {
  if (waiters_.load() == 0) return;
  MutexLock lock(mutex_);
  mainTaskWaits_ = true;
  changed_.notifyAll();
}

void TaskCounter::release() {
  MutexLock lock(mutex_);
  released_ = true;
  changed_.notifyAll();
}

}  // namespace zorvane::platform
