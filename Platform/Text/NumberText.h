// Numbers as text and text as numbers. Nothing here follows the locale.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zorvane::platform {

// The shortest text that reads back as the same number: "1.5", "5", "1e+22", "nan", "inf".
std::string textOfDouble(double value);
// As "%.*f" in the C locale.
std::string fixedTextOfDouble(double value, int digits);
std::string textOfInteger(std::int64_t value);
// "what at byte 5", for errors.
std::string textAtByte(std::string_view what, std::size_t position);

// The number at the start of the text, after blanks and a sign; nullopt when there is none. A number out of range is
// clamped (integers) or infinite (doubles).
std::optional<std::int64_t> leadingInteger(std::string_view text) noexcept;
std::optional<double> leadingDouble(std::string_view text) noexcept;
// The number that the whole text is, digits of base 10 or 16; nullopt for any other text and beyond 64 bits.
std::optional<std::uint64_t> wholeUnsigned(std::string_view text, int base) noexcept;

}  // namespace zorvane::platform
