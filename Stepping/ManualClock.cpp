#include "Stepping/ManualClock.h"

namespace zorvane::platform {

ManualClock::ManualClock(Date start) : now_(start) {}

Date ManualClock::now() const {
  MutexLock lock(mutex_);
  return now_;
}

double ManualClock::monotonicSeconds() const {
  MutexLock lock(mutex_);
  return monotonic_;
}

void ManualClock::advance(double seconds) {
  if (!(seconds > 0)) return;
  MutexLock lock(mutex_);
  now_.secondsSince1970 += seconds;
  monotonic_ += seconds;
}

void ManualClock::setNow(Date date) {
  MutexLock lock(mutex_);
  now_ = date;
}

}  // namespace zorvane::platform
