#include "Collector/BodyBudget.h"

namespace zorvane::collector {

bool BodyBudget::Share::take(std::size_t bytes) {
  std::unique_lock lock(budget_.mutex_);
  const auto fits = [&] { return budget_.used_ + bytes <= budget_.bytes_; };
  const auto mayGoBeyond = [&] { return !budget_.beyond_ || budget_.beyond_ == this; };
  budget_.changed_.wait_for(lock, budget_.patience_, [&] { return budget_.closed_ || fits() || mayGoBeyond(); });
  if (!fits()) {
    if (!mayGoBeyond()) return false;
    budget_.beyond_ = this;
  }
  budget_.used_ += bytes;
  taken_ += bytes;
  return true;
}

void BodyBudget::Share::giveBack() {
  {
    const std::lock_guard lock(budget_.mutex_);
    budget_.used_ -= taken_;
    taken_ = 0;
    if (budget_.beyond_ == this) budget_.beyond_ = nullptr;
  }
  budget_.changed_.notify_all();
}

void BodyBudget::close() {
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  changed_.notify_all();
}

}  // namespace zorvane::collector
