#include "Platform/Time/Clock.h"

#include <time.h>

namespace zorvane::platform {

namespace {

// Not by std::chrono: on 32-bit systems its library may have been built with times that end in 2038.
double secondsOf(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

}  // namespace

Date SystemClock::now() const {
  return {secondsOf(CLOCK_REALTIME)};
}

double SystemClock::monotonicSeconds() const {
  return secondsOf(CLOCK_MONOTONIC);
}

}  // namespace zorvane::platform
