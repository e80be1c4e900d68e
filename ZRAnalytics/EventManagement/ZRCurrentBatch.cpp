#include "ZRAnalytics/EventManagement/ZRCurrentBatch.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"

namespace zorvane {

namespace {

// Whether both are the rest of one batch.
bool belongTogether(const Dictionary& left, const Dictionary& right) {
  return left.empty() || right.empty() ||
         (left.objectForKey(kBatchKeySession) == right.objectForKey(kBatchKeySession) &&
          left.objectForKey(kBatchKeySource) == right.objectForKey(kBatchKeySource));
}

// Without memory it throws and changes nothing.
void addAll(Array&& later, Array& events) {
  events.reserve(events.size() + later.size());
  events.insert(events.end(), std::make_move_iterator(later.begin()), std::make_move_iterator(later.end()));
}

void keepOnly(Array& events, const std::function<bool(const Value& record)>& passes) {
  std::erase_if(events, [&passes](const Value& record) { return !passes(record); });
}

}  // namespace

bool ZRCurrentBatch::empty() const {
  platform::MutexLock lock(mutex_);
  return count() == 0;
}

bool ZRCurrentBatch::append(Dictionary record) {
  platform::MutexLock lock(mutex_);
  if (!events_) events_.emplace();
  events_->emplace_back(std::move(record));
  // A negative threshold becomes a huge unsigned number, so the batch is never full.
  return count() >= std::max<std::uint64_t>(static_cast<std::uint64_t>(threshold_), fullAfterFailure_.value_or(0));
}

std::list<ZRClosedBatch> ZRCurrentBatch::take(Dictionary rest) {
  std::list<ZRClosedBatch> taken(1);
  ZRClosedBatch& last = taken.front();
  last.rest = std::move(rest);
  platform::MutexLock lock(mutex_);
  last.generation = generation_;
  if (!returned_.empty() && belongTogether(returned_.back().rest, last.rest)) {
    if (events_) addAll(std::move(*events_), returned_.back().events);
    last.events = std::move(returned_.back().events);
    returned_.pop_back();
  } else if (events_) {
    last.events = std::move(*events_);
  }
  events_.reset();
  fullAfterFailure_.reset();
  if (last.events.empty()) taken.clear();
  taken.splice(taken.begin(), returned_);
  return taken;
}

void ZRCurrentBatch::putBack(ZRClosedBatch&& batch) {
  platform::MutexLock lock(mutex_);
  if (batch.generation != generation_) return;
  if (!returned_.empty() && belongTogether(batch.rest, returned_.front().rest)) {
    ZRClosedBatch& first = returned_.front();
    addAll(std::move(first.events), batch.events);
    first.events = std::move(batch.events);
    if (first.rest.empty()) first.rest = std::move(batch.rest);
  } else {
    returned_.push_front(std::move(batch));
  }
  const auto threshold = static_cast<std::size_t>(std::max<std::int64_t>(threshold_, 0));
  fullAfterFailure_ = count() + std::max(threshold, count() / 4);
}

void ZRCurrentBatch::clear() {
  // Destroyed after the lock: they may contain host objects.
  Array dropped;
  std::list<ZRClosedBatch> droppedToo;
  platform::MutexLock lock(mutex_);
  if (events_) events_->swap(dropped);
  returned_.swap(droppedToo);
  fullAfterFailure_.reset();
  ++generation_;
}

std::uint64_t ZRCurrentBatch::generation() const {
  platform::MutexLock lock(mutex_);
  return generation_;
}

void ZRCurrentBatch::keepIf(const std::function<bool(const Value& record)>& passes) {
  for (;;) {
    std::list<ZRClosedBatch> returned;
    std::optional<Array> recent;
    std::size_t before = 0;
    {
      platform::MutexLock lock(mutex_);
      returned = returned_;
      recent = events_;
      before = count();
    }
    for (ZRClosedBatch& batch : returned) keepOnly(batch.events, passes);
    std::erase_if(returned, [](const ZRClosedBatch& batch) { return batch.events.empty(); });
    if (recent) keepOnly(*recent, passes);
    platform::MutexLock lock(mutex_);
    // Meanwhile it may have been cleared, or events put back.
    if (count() != before) continue;
    // The dropped events are destroyed after the lock.
    returned_.swap(returned);
    events_.swap(recent);
    return;
  }
}

std::optional<Array> ZRCurrentBatch::events() const {
  platform::MutexLock lock(mutex_);
  if (returned_.empty()) return events_;
  Array all;
  for (const ZRClosedBatch& batch : returned_) all.insert(all.end(), batch.events.begin(), batch.events.end());
  if (events_) all.insert(all.end(), events_->begin(), events_->end());
  return all;
}

std::size_t ZRCurrentBatch::count() const {
  std::size_t all = events_ ? events_->size() : 0;
  for (const ZRClosedBatch& batch : returned_) all += batch.events.size();
  return all;
}

}  // namespace zorvane
