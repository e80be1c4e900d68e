#pragma once

#include <algorithm>
#include <atomic>
#include <utility>

#include "Platform/Formats/BinaryObjects.h"

namespace zorvane::platform {

// The objects that lazy values are decoded from. A value that takes more than its allowance halves that of the values
// after it, so that a hostile file of many such values costs about as much as one of them.
struct LazyPropertyListSource {
  explicit LazyPropertyListSource(BinaryObjects all) : objects(std::move(all)) {}

  DecodingAllowance allowance() const {
    const DecodingAllowance full;
    const int halvings = overruns.load(std::memory_order_relaxed);
    return {full.values >> halvings, full.textBytes >> halvings, false};
  }
  void noteUse(const DecodingAllowance& allowance) const {
    constexpr int kMaximumHalvings = 7;
    if (!allowance.isExceeded) return;
    const int halvings = overruns.load(std::memory_order_relaxed);
    overruns.store(std::min(halvings + 1, kMaximumHalvings), std::memory_order_relaxed);
  }

  const BinaryObjects objects;
  mutable std::atomic<int> overruns{0};
};

}  // namespace zorvane::platform
