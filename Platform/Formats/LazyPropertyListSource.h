#pragma once

#include <algorithm>
#include <atomic>
#include <utility>

#include "Platform/Formats/BinaryObjects.h"

namespace zorvane::platform {

// The objects that lazy values are decoded from. A value that exceeds its allowance halves the allowance of the later
// ones, so that many such values cost about as much as one.
struct LazyPropertyListSource {
  explicit LazyPropertyListSource(BinaryObjects all) : objects(std::move(all)) {}

  DecodingAllowance allowance() const {
    const DecodingAllowance full;
    const int halvings = overruns.load(std::memory_order_relaxed);
    return {full.values >> halvings, full.textBytes >> halvings, false};
  }
  void noteUse(const DecodingAllowance& allowance) const {
    constexpr int kMaxHalvings = 7;
    if (!allowance.isExceeded) return;
    const int halvings = overruns.load(std::memory_order_relaxed);
    overruns.store(std::min(halvings + 1, kMaxHalvings), std::memory_order_relaxed);
  }

  const BinaryObjects objects;
  mutable std::atomic<int> overruns{0};
};

}  // namespace zorvane::platform
