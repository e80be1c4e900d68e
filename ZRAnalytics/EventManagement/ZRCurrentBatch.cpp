#include "ZRAnalytics/EventManagement/ZRCurrentBatch.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace zorvane {

bool ZRCurrentBatch::empty() const {
  platform::MutexLock lock(mutex_);
  return !events_ || events_->empty();
}

bool ZRCurrentBatch::append(Dictionary record) {
  platform::MutexLock lock(mutex_);
  if (!events_) events_.emplace();
  events_->emplace_back(std::move(record));
  // A negative threshold becomes a huge unsigned number, so the batch is never full.
  return events_->size() >=
         std::max<std::uint64_t>(static_cast<std::uint64_t>(threshold_), fullAfterFailure_.value_or(0));
}

Array ZRCurrentBatch::take(std::uint64_t& generation) {
  platform::MutexLock lock(mutex_);
  generation = generation_;
  if (!events_ || events_->empty()) return {};
  Array events = std::move(*events_);
  events_.reset();
  fullAfterFailure_.reset();
  return events;
}

void ZRCurrentBatch::putBack(Array&& events, std::uint64_t generation) {
  platform::MutexLock lock(mutex_);
  if (generation != generation_) return;
  if (events_) {
    events.insert(events.end(), std::make_move_iterator(events_->begin()), std::make_move_iterator(events_->end()));
  }
  const auto threshold = static_cast<std::size_t>(std::max<std::int64_t>(threshold_, 0));
  fullAfterFailure_ = events.size() + std::max(threshold, events.size() / 4);
  events_ = std::move(events);
}

void ZRCurrentBatch::clear() {
  Array dropped;  // Destroyed after the lock: it may contain host objects.
  platform::MutexLock lock(mutex_);
  if (events_) events_->swap(dropped);
  fullAfterFailure_.reset();
  ++generation_;
}

std::uint64_t ZRCurrentBatch::generation() const {
  platform::MutexLock lock(mutex_);
  return generation_;
}

void ZRCurrentBatch::keepIf(const std::function<bool(const Value& record)>& passes) {
  for (;;) {
    const std::optional<Array> held = events();
    if (!held) return;
    Array kept;
    for (const Value& record : *held) {
      if (passes(record)) kept.push_back(record);
    }
    platform::MutexLock lock(mutex_);
    // Meanwhile it may have been cleared, or events put back.
    if (!events_ || events_->size() != held->size()) continue;
    // The dropped events are destroyed with `held`, after the lock.
    events_->swap(kept);
    return;
  }
}

std::optional<Array> ZRCurrentBatch::events() const {
  platform::MutexLock lock(mutex_);
  return events_;
}

}  // namespace zorvane
