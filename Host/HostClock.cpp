#include "Host/HostClock.h"

#include <cmath>

namespace zorvane::host {
namespace {

constexpr double kMicrosecondsPerSecond = 1e6;
// Less than the scheduler's tolerance, a microsecond, and more than the rounding of a deadline to microseconds.
constexpr double kDueBefore = 0.75e-6;

std::int64_t microsecondsOf(double seconds) {
  return static_cast<std::int64_t>(std::round(seconds * kMicrosecondsPerSecond));
}

double secondsOf(std::int64_t microseconds) {
  return static_cast<double>(microseconds) / kMicrosecondsPerSecond;
}

}  // namespace

platform::Date RunningClock::now() const {
  return {system_.now().secondsSince1970 + offset_.load()};
}

void RunningClock::setNow(platform::Date date) {
  offset_ = date.secondsSince1970 - system_.now().secondsSince1970;
}

StandingClock::StandingClock(platform::Date start) : wall_(microsecondsOf(start.secondsSince1970)) {}

platform::Date StandingClock::now() const {
  platform::MutexLock lock(mutex_);
  return {secondsOf(wall_)};
}

double StandingClock::monotonicSeconds() const {
  platform::MutexLock lock(mutex_);
  return secondsOf(monotonic_);
}

void StandingClock::setNow(platform::Date date) {
  platform::MutexLock lock(mutex_);
  wall_ = microsecondsOf(date.secondsSince1970);
}

std::int64_t StandingClock::ticks() const {
  platform::MutexLock lock(mutex_);
  return monotonic_;
}

std::int64_t StandingClock::ticksOfDeadline(double monotonicSeconds) {
  std::int64_t ticks = microsecondsOf(monotonicSeconds);
  while (secondsOf(ticks) + kDueBefore < monotonicSeconds) ++ticks;
  return ticks;
}

std::int64_t StandingClock::ticksOf(double duration) {
  return microsecondsOf(duration);
}

void StandingClock::advanceTo(std::int64_t ticks) {
  platform::MutexLock lock(mutex_);
  if (ticks <= monotonic_) return;
  wall_ += ticks - monotonic_;
  monotonic_ = ticks;
}

}  // namespace zorvane::host
