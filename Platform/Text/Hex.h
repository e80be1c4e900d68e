#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace zorvane::platform {

inline constexpr std::string_view kLowerHexDigits = "0123456789abcdef";
inline constexpr std::string_view kUpperHexDigits = "0123456789ABCDEF";

// Appends two hexadecimal digits for each byte.
void appendHex(std::string& text, std::span<const std::uint8_t> bytes, std::string_view digits = kLowerHexDigits);

}  // namespace zorvane::platform
