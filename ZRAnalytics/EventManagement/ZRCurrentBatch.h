// The events that were recorded since the last batch was closed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "Platform/Dispatch/Mutex.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Thread-safe. In memory only.
class ZRCurrentBatch {
 public:
  // The batch is full when it holds `threshold` events; never if that is negative.
  explicit ZRCurrentBatch(std::int64_t threshold) : threshold_(threshold) {}

  std::int64_t threshold() const { return threshold_; }
  bool empty() const;
  // True when the batch is full.
  bool append(Dictionary record);
  // Takes the events out, in the order of recording; none when there are none. The generation is the number of clears
  // until then.
  Array take(std::uint64_t& generation);
  // Puts events that could not be saved in front of those that were recorded since, unless the batch was cleared after
  // they were taken. The batch is full again after `threshold` more events, or a quarter of what it holds if that is
  // more: a larger batch is retried less often. Without memory it throws and leaves `events` as they were.
  void putBack(Array&& events, std::uint64_t generation);
  // Drops the events.
  void clear();
  std::uint64_t generation() const;
  // Removes the events for which the function returns false; it is called with no lock held, and again for all when
  // events are put back meanwhile. Call on the queue that appends, while no other thread calls take().
  void keepIf(const std::function<bool(const Value& record)>& passes);
  // A copy; absent before the first event and after each take.
  std::optional<Array> events() const;

 private:
  const std::int64_t threshold_;
  mutable platform::Mutex mutex_;
  std::optional<Array> events_ ZR_GUARDED_BY(mutex_);
  std::uint64_t generation_ ZR_GUARDED_BY(mutex_) = 0;
  // While events that were put back are in the batch: the number of events with which it is full.
  std::optional<std::size_t> fullAfterFailure_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
