// The events that were recorded since the last save.
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
  // Full with so many events; never when the number is negative.
  explicit ZRCurrentBatch(std::int64_t threshold) : threshold_(threshold) {}

  std::int64_t threshold() const { return threshold_; }
  // True when the batch is full.
  bool append(Dictionary record);
  // Takes the events out, in the order of recording; none when there are none.
  Array take();
  // Puts events that could not be saved in front of those that were recorded since. The batch then counts as full when
  // it has grown by a batch's worth, and by a quarter: each attempt costs as much as the batch is large.
  void putBack(Array events);
  // Drops the events.
  void clear();
  // Drops the events that do not pass. The function is called with no lock held.
  void keepIf(const std::function<bool(const Dictionary& record)>& passes);
  // A copy; absent before the first event and after each take.
  std::optional<Array> events() const;

 private:
  const std::int64_t threshold_;
  mutable platform::Mutex mutex_;
  std::optional<Array> events_ ZR_GUARDED_BY(mutex_);
  // While events that were put back are in the batch: the number of events with which it is full.
  std::optional<std::size_t> fullAfterFailure_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
