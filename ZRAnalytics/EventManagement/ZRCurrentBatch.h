// The events that were recorded since the last batch was closed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>

#include "Platform/Dispatch/Mutex.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Events that will be saved as one batch.
struct ZRUnsavedBatch {
  Array events;
  // How often the current batch was cleared until they were taken from it.
  std::uint64_t generation = 0;
  // What a saved batch holds beside the events and the identifier: session, sources, time. Nil: that of the batch that
  // they join.
  Value rest;
};

// Thread-safe. In memory only.
class ZRCurrentBatch {
 public:
  // The batch is full when it holds `threshold` events; never if that is negative.
  explicit ZRCurrentBatch(std::int64_t threshold) : threshold_(threshold) {}

  std::int64_t threshold() const { return threshold_; }
  bool empty() const;
  // True when the batch is full.
  bool append(Dictionary record);
  // Takes the events out, in the order of recording; none when there are none. `rest` is that of the events recorded
  // since the last take. Events that were put back join them if they have the same session and sources, else they stay
  // a batch of their own. Without memory it throws and takes nothing.
  std::list<ZRUnsavedBatch> take(Dictionary rest);
  // Puts events that could not be saved in front of all others; drops those that were taken before a clear. Leaves none
  // in the list. The batch is full again after `threshold` more events, or a quarter of what it holds if that is more:
  // a larger batch is retried less often. Without memory it throws, and the batches that it could not put back are
  // left.
  void putBack(std::list<ZRUnsavedBatch>& batches);
  // Drops the events.
  void clear();
  std::uint64_t generation() const;
  // Removes the events for which the function returns false; it is called with no lock held, and again for all when
  // events are taken or put back meanwhile. Call on the queue that appends, while no other thread calls take().
  void keepIf(const std::function<bool(const Value& record)>& passes);
  // A copy; absent before the first event and after each take.
  std::optional<Array> events() const;

 private:
  std::size_t count() const ZR_REQUIRES(mutex_);
  // The one that takes events.
  ZRUnsavedBatch& openBatch() ZR_REQUIRES(mutex_);

  const std::int64_t threshold_;
  mutable platform::Mutex mutex_;
  // Those that were put back, then one without a rest, which takes events.
  std::list<ZRUnsavedBatch> batches_ ZR_GUARDED_BY(mutex_);
  std::uint64_t generation_ ZR_GUARDED_BY(mutex_) = 0;
  // The number of calls that took events out or put them back.
  std::uint64_t changes_ ZR_GUARDED_BY(mutex_) = 0;
  // While events that were put back are in the batch: the number of all events with which it is full.
  std::optional<std::size_t> fullAfterFailure_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
