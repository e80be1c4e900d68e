// What fuzz targets say of their inputs.
#pragma once

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "Platform/Values/Value.h"

namespace zorvane::fuzz {

// Ends the process where it does not hold, which the fuzzer takes for a crash.
inline void check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

inline std::string_view textOf(const unsigned char* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// Equal but for a rounding: dates move between two epochs. Not-a-number is the same as itself.
inline bool sameNumber(double left, double right) {
  if (left == right || (std::isnan(left) && std::isnan(right))) return true;
  return std::abs(left - right) <= 1e-12 * (std::abs(left) + 1e9);
}

// The same kinds with the same content, in the same order.
inline bool same(const platform::Value& left, const platform::Value& right) {
  using Kind = platform::ValueKind;
  if (left.kind() != right.kind()) return false;
  switch (left.kind()) {
    case Kind::Double:
      return sameNumber(*left.asDouble(), *right.asDouble());
    case Kind::Date:
      return sameNumber(left.asDate()->secondsSince1970, right.asDate()->secondsSince1970);
    case Kind::Array: {
      const platform::Array& elements = *left.asArray();
      const platform::Array& others = *right.asArray();
      if (elements.size() != others.size()) return false;
      for (std::size_t i = 0; i < elements.size(); ++i) {
        if (!same(elements[i], others[i])) return false;
      }
      return true;
    }
    case Kind::Dictionary: {
      if (left.asDictionary()->size() != right.asDictionary()->size()) return false;
      auto other = right.asDictionary()->begin();
      for (const auto& [key, element] : *left.asDictionary()) {
        if (key != other->key || !same(element, other->value)) return false;
        ++other;
      }
      return true;
    }
    default:
      return left == right;
  }
}

}  // namespace zorvane::fuzz
