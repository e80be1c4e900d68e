// Constants shared by the writer and the reader of keyed archives.
#pragma once

#include <cstdint>
#include <string_view>

namespace zorvane::platform::archive {

inline constexpr std::int64_t kVersion = 100000;
inline constexpr std::string_view kArchiver = "NSKeyedArchiver";
// The most containers and objects inside one another.
inline constexpr int kMaxDepth = 256;

}  // namespace zorvane::platform::archive
