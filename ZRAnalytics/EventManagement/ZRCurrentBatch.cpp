#include "ZRAnalytics/EventManagement/ZRCurrentBatch.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"

namespace zorvane {
namespace {

// Whether events with the first rest may be saved under the other.
bool mayJoin(const Value& rest, const Value& other) {
  if (rest.isNil()) return true;
  if (other.isNil()) return false;
  const auto isSame = [&](std::string_view key) {
    const Value* const left = rest.asDictionary()->find(key);
    const Value* const right = other.asDictionary()->find(key);
    return left && right ? *left == *right : left == right;
  };
  return isSame(kBatchKeySession) && isSame(kBatchKeySource);
}

// Puts the earlier events in front of the later. Without memory it throws and changes nothing.
void join(Array& earlier, Array& later) {
  earlier.reserve(earlier.size() + later.size());
  for (Value& event : later) earlier.push_back(std::move(event));
  later.swap(earlier);
}

void keepOnly(Array& events, const std::function<bool(const Value& record)>& passes) {
  Array kept;
  for (const Value& event : events) {
    if (passes(event)) kept.push_back(event);
  }
  events.swap(kept);
}

}  // namespace

bool ZRCurrentBatch::empty() const {
  platform::MutexLock lock(mutex_);
  return count() == 0;
}

bool ZRCurrentBatch::append(Dictionary record) {
  platform::MutexLock lock(mutex_);
  openBatch().events.emplace_back(std::move(record));
  // A negative threshold becomes a huge unsigned number, so the batch is never full.
  return count() >= std::max<std::uint64_t>(static_cast<std::uint64_t>(threshold_), fullAfterFailure_.value_or(0));
}

std::list<ZRUnsavedBatch> ZRCurrentBatch::take(Dictionary rest) {
  std::list<ZRUnsavedBatch> taken;
  Value lastRest = std::move(rest);
  platform::MutexLock lock(mutex_);
  if (count() == 0) return taken;
  ZRUnsavedBatch& last = openBatch();
  if (&last != &batches_.front()) {
    const auto earlier = std::prev(batches_.end(), 2);
    if (mayJoin(earlier->rest, lastRest)) {
      join(earlier->events, last.events);
      batches_.erase(earlier);
    }
  }
  last.rest = std::move(lastRest);
  last.generation = generation_;
  if (last.events.empty()) batches_.pop_back();
  fullAfterFailure_.reset();
  ++changes_;
  taken.swap(batches_);
  return taken;
}

void ZRCurrentBatch::putBack(std::list<ZRUnsavedBatch>& batches) {
  std::list<ZRUnsavedBatch> done;  // Destroyed after the lock.
  platform::MutexLock lock(mutex_);
  const std::size_t before = count();
  while (!batches.empty()) {
    const auto last = std::prev(batches.end());
    const bool isCleared = last->generation != generation_;
    if (!isCleared && (batches_.empty() || !mayJoin(last->rest, batches_.front().rest))) {
      batches_.splice(batches_.begin(), batches, last);
      continue;
    }
    if (!isCleared) join(last->events, batches_.front().events);
    done.splice(done.end(), batches, last);
  }
  const std::size_t events = count();
  if (events == before) return;
  ++changes_;
  const auto threshold = static_cast<std::size_t>(std::max<std::int64_t>(threshold_, 0));
  fullAfterFailure_ = events + std::max(threshold, events / 4);
}

void ZRCurrentBatch::clear() {
  // Destroyed after the lock: they may contain host objects.
  std::list<ZRUnsavedBatch> dropped;
  ZRUnsavedBatch last;
  platform::MutexLock lock(mutex_);
  if (!batches_.empty()) {
    dropped.splice(dropped.begin(), batches_, batches_.begin(), std::prev(batches_.end()));
    std::swap(batches_.back(), last);
  }
  fullAfterFailure_.reset();
  ++generation_;
  ++changes_;
}

std::uint64_t ZRCurrentBatch::generation() const {
  platform::MutexLock lock(mutex_);
  return generation_;
}

void ZRCurrentBatch::keepIf(const std::function<bool(const Value& record)>& passes) {
  for (;;) {
    std::uint64_t changes = 0;
    const auto copy = [&] {
      platform::MutexLock lock(mutex_);
      changes = changes_;
      return batches_;
    };
    // What is dropped is destroyed with it, after the lock.
    std::list<ZRUnsavedBatch> batches = copy();
    for (ZRUnsavedBatch& batch : batches) keepOnly(batch.events, passes);
    std::erase_if(batches, [](const ZRUnsavedBatch& batch) { return batch.events.empty() && !batch.rest.isNil(); });
    platform::MutexLock lock(mutex_);
    if (changes_ != changes) continue;
    batches_.swap(batches);
    if (count() == 0) fullAfterFailure_.reset();
    return;
  }
}

std::optional<Array> ZRCurrentBatch::events() const {
  platform::MutexLock lock(mutex_);
  if (batches_.empty()) return std::nullopt;
  Array all;
  for (const ZRUnsavedBatch& batch : batches_) {
    for (const Value& event : batch.events) all.push_back(event);
  }
  return all;
}

std::size_t ZRCurrentBatch::count() const {
  std::size_t events = 0;
  for (const ZRUnsavedBatch& batch : batches_) events += batch.events.size();
  return events;
}

ZRUnsavedBatch& ZRCurrentBatch::openBatch() {
  if (batches_.empty() || !batches_.back().rest.isNil()) batches_.emplace_back();
  return batches_.back();
}

}  // namespace zorvane
