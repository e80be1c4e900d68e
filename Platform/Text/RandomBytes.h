#pragma once

#include <cstdint>
#include <span>

namespace zorvane::platform {

// Unpredictable bytes from the operating system, at most 256 at a time. Thread-safe; fork-safe. Throws
// std::runtime_error when the system has none.
void fillWithRandomBytes(std::span<std::uint8_t> bytes);

}  // namespace zorvane::platform
