// Checks for fuzz targets.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "Platform/Formats/JSON.h"
#include "Platform/Formats/PropertyList.h"

namespace zorvane::fuzz {

// Aborts unless it holds; the fuzzer reports that as a crash.
inline void check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

inline std::string_view textOf(const unsigned char* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// The same kinds, content and order; not-a-number is the same as itself.
inline bool same(const platform::Value& left, const platform::Value& right) {
  return platform::binaryPropertyList(left) == platform::binaryPropertyList(right) &&
         platform::jsonText(left) == platform::jsonText(right);
}

}  // namespace zorvane::fuzz
