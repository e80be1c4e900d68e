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

}  // namespace zorvane::platform
