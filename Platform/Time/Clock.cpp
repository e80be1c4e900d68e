#include "Platform/Time/Clock.h"

#include <chrono>

namespace zorvane::platform {

namespace {

double secondsOf(std::chrono::nanoseconds time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

Date SystemClock::now() const {
  return {secondsOf(std::chrono::system_clock::now().time_since_epoch())};
}

double SystemClock::monotonicSeconds() const {
  return secondsOf(std::chrono::steady_clock::now().time_since_epoch());
}

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
