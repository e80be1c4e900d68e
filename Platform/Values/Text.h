// Text: validity, number text that never follows the locale, and message formats.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Values/Value.h"

namespace zorvane::platform {

bool isValidUtf8(std::string_view text) noexcept;
// The text with U+FFFD for each invalid sequence: a character that is broken off is one, any other bad byte is one.
std::string validUtf8(std::string text);

// The shortest text that reads back as the same number, "1.5", "5", "1e+22", "nan", "inf".
std::string textOfDouble(double value);
// As "%.*f" in the C locale.
std::string fixedTextOfDouble(double value, int digits);
std::string textOfInteger(std::int64_t value);

// The number at the start of the text, after blanks and a sign; empty when there is none. Out of range is clamped
// (integers) or infinite (doubles).
std::optional<std::int64_t> leadingInteger(std::string_view text) noexcept;
std::optional<double> leadingDouble(std::string_view text) noexcept;

// The pattern with each placeholder ("%@", "%ld", "%f") replaced by the next argument and "%%" by a percent sign. An
// argument's own text is never read as a pattern; a placeholder without an argument stays as it is.
std::string formatText(std::string_view pattern, std::initializer_list<Value> arguments);

}  // namespace zorvane::platform
