#include "Platform/Dispatch/TimerList.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zorvane::platform {

namespace {

constexpr double kShortestInterval = 0.001;
// About thirty years. Sums with longer intervals lose precision.
constexpr double kLongestInterval = 1e9;
// Sums of times are rounded: a timer this close to its deadline is due.
constexpr double kTolerance = 1e-6;

}  // namespace

TimerId TimerList::add(double now, double intervalSeconds, std::function<void()> work) {
  // NaN counts as the shortest.
  const double interval =
      intervalSeconds >= kShortestInterval ? std::min(intervalSeconds, kLongestInterval) : kShortestInterval;
  timers_.push_back(
      {++lastId_, now + interval, interval, std::make_shared<const std::function<void()>>(std::move(work))});
  return lastId_;
}

TimerList::Work TimerList::cancel(TimerId id) {
  const auto timer = std::find_if(timers_.begin(), timers_.end(), [id](const Timer& t) { return t.id == id; });
  if (timer == timers_.end()) return nullptr;
  Work work = std::move(timer->work);
  timers_.erase(timer);
  return work;
}

double TimerList::nextDeadline() const noexcept {
  double next = -1;
  for (const Timer& timer : timers_) {
    if (next < 0 || timer.deadline < next) next = timer.deadline;
  }
  return next;
}

TimerList::Work TimerList::takeDue(double now) {
  Timer* due = nullptr;
  for (Timer& timer : timers_) {
    if (timer.deadline <= now + kTolerance && (!due || timer.deadline < due->deadline)) due = &timer;
  }
  if (!due) return nullptr;
  const double missed = std::floor((now + kTolerance - due->deadline) / due->interval);
  due->deadline += (missed + 1) * due->interval;
  return due->work;
}

}  // namespace zorvane::platform
