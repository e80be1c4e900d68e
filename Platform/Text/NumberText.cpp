#include "Platform/Text/NumberText.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>

#include <locale.h>

#include "Platform/Text/Ascii.h"

namespace zorvane::platform {
namespace {

// The text must start with a number. Out of range gives infinity or zero.
double readDouble(std::string_view text) noexcept {
#if defined(__cpp_lib_to_chars)
  double number = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc()) return number;
#endif
  // Out of range, or a standard library without from_chars for doubles. strtod would also read hexadecimal numbers, so
  // it gets only the characters of a decimal one.
  static const locale_t kCLocale = newlocale(LC_ALL_MASK, "C", nullptr);
  const std::string digits(text.substr(0, text.find_first_not_of("+-.0123456789eE")));
  return strtod_l(digits.c_str(), nullptr, kCLocale);
}

std::string_view numberPart(std::string_view text) noexcept {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  if (!text.empty() && text[0] == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text[0] == '-') return {};
  }
  return text;
}

}  // namespace

std::string textOfDouble(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  const double magnitude = std::abs(value);
  const bool isFixed = magnitude == 0 || (magnitude >= 1e-4 && magnitude < 1e17);
  char text[32];
  const auto format = isFixed ? std::chars_format::fixed : std::chars_format::scientific;
  return std::string(text, std::to_chars(text, text + sizeof text, value, format).ptr);
}

std::string fixedTextOfDouble(double value, int digits) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  char text[512];  // the largest double has 309 digits before the point
  const auto end =
      std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, std::clamp(digits, 0, 100)).ptr;
  return std::string(text, end);
}

std::string textOfInteger(std::int64_t value) {
  char text[24];
  return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

std::string textAtByte(std::string_view what, std::size_t position) {
  std::string text(what);
  text += " at byte ";
  text += textOfInteger(static_cast<std::int64_t>(position));
  return text;
}

std::optional<std::int64_t> leadingInteger(std::string_view text) noexcept {
  text = numberPart(text);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc::result_out_of_range) {
    return text[0] == '-' ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
  }
  if (error != std::errc()) return std::nullopt;
  return number;
}

std::optional<double> leadingDouble(std::string_view text) noexcept {
  text = numberPart(text);
  // from_chars would also read "nan" and "inf".
  std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
  if (digits.starts_with('.')) digits.remove_prefix(1);
  if (digits.empty() || !isAsciiDigit(digits[0])) return std::nullopt;
  return readDouble(text);
}

std::optional<std::uint64_t> wholeUnsigned(std::string_view text, int base) noexcept {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace zorvane::platform
