#include "Collector/Places.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace zorvane::collector {

namespace {

thread_local bool threadGivesWay = false;

}  // namespace

Places::Places(std::size_t count) : count_(count), wanted_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (wanted_ < 0) throw std::system_error(errno, std::generic_category(), "cannot make an event descriptor");
}

Places::~Places() {
  ::close(wanted_);
}

void Places::serve(std::function<void()> connection) {
  const std::lock_guard lock(mutex_);
  waiting_.push_back(std::move(connection));
  if (waiting_.size() > free_ && threads_.size() < count_) {
    try {
      threads_.emplace_back([this] { work(); });
      ++free_;
    } catch (const std::system_error&) {
      // As many threads as the system allows: it waits for one of them.
    }
  }
  updateWanted();
  changed_.notify_one();
}

void Places::finish() {
  {
    const std::lock_guard lock(mutex_);
    finishing_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
}

bool Places::giveWay() {
  const std::lock_guard lock(mutex_);
  if (!threadGivesWay && missing() > 0) {
    threadGivesWay = true;
    ++leaving_;
    updateWanted();
  }
  return threadGivesWay;
}

void Places::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return !waiting_.empty() || finishing_; });
    if (waiting_.empty()) return;
    const auto connection = std::move(waiting_.front());
    waiting_.pop_front();
    --free_;
    updateWanted();
    lock.unlock();
    connection();
    lock.lock();
    ++free_;
    leaving_ -= std::exchange(threadGivesWay, false) ? 1 : 0;
    updateWanted();
  }
}

std::size_t Places::missing() const {
  return waiting_.size() - std::min(waiting_.size(), free_ + leaving_);
}

void Places::updateWanted() {
  if (isWanted_ == (missing() > 0)) return;
  isWanted_ = !isWanted_;
  eventfd_t count = 0;
  if (isWanted_) {
    ::eventfd_write(wanted_, 1);
  } else {
    ::eventfd_read(wanted_, &count);
  }
}

}  // namespace zorvane::collector
