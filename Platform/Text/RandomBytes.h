#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace zorvane::platform {

// Unpredictable bytes from the operating system, at most 256 at a time. Thread-safe; fork-safe. Throws
// std::runtime_error on a system that has no source of them.
void fillWithRandomBytes(std::span<std::uint8_t> bytes);

// Two hexadecimal digits for each byte, appended.
void appendHex(std::string& text, std::span<const std::uint8_t> bytes, std::string_view digits = "0123456789abcdef");

}  // namespace zorvane::platform
