// What the writer and the reader of keyed archives share.
#pragma once

#include <cstdint>
#include <string_view>

namespace zorvane::platform::archive {

inline constexpr std::int64_t kVersion = 100000;
inline constexpr std::string_view kArchiver = "NSKeyedArchiver";
// The most objects that stand inside one another, containers and objects with keys alike.
inline constexpr int kDepth = 256;

}  // namespace zorvane::platform::archive
