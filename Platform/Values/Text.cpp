#include "Platform/Values/Text.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <locale.h>

namespace zorvane::platform {
namespace {

struct Sequence {
  std::size_t length;
  bool valid;
};

// The character that starts at text[0]; where it is unsound, the bytes that could have begun one, at least the first.
Sequence firstSequence(std::string_view text) noexcept {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {1, true};
  if (lead < 0xC2 || lead > 0xF4) return {1, false};
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  // What the second byte may be, without overlong forms, surrogates and anything above U+10FFFF.
  unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  std::size_t read = 1;
  while (read < length && read < text.size() && byte(read) >= low && byte(read) <= high) {
    low = 0x80;
    high = 0xBF;
    ++read;
  }
  return {read, read == length};
}

std::size_t validPrefix(std::string_view text) noexcept {
  std::size_t position = 0;
  while (position < text.size()) {
    std::uint64_t block;
    if (text.size() - position >= sizeof block) {
      std::memcpy(&block, text.data() + position, sizeof block);
      if ((block & 0x8080808080808080U) == 0) {
        position += sizeof block;
        continue;
      }
    }
    const auto [length, valid] = firstSequence(text.substr(position));
    if (!valid) return position;
    position += length;
  }
  return position;
}

// What stands in front is a number: its value, infinite or zero where it is out of range.
double readDouble(std::string_view text) noexcept {
#if defined(__cpp_lib_to_chars)
  double number = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc()) return number;
#endif
  // Out of range, or a standard library without from_chars for doubles: strtod in the C locale, over just the
  // characters of a decimal number.
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

bool isValidUtf8(std::string_view text) noexcept {
  return validPrefix(text) == text.size();
}

std::string validUtf8(std::string text) {
  std::size_t position = validPrefix(text);
  if (position == text.size()) return text;
  std::string repaired(text, 0, position);
  while (position < text.size()) {
    const std::string_view rest = std::string_view(text).substr(position);
    const auto [length, valid] = firstSequence(rest);
    repaired += valid ? rest.substr(0, length) : "\xEF\xBF\xBD";
    position += length;
  }
  return repaired;
}

std::string textOfDouble(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::scientific).ptr;
  // "d.ddde+XX": written out between 1e-4 and 1e17, as people write numbers.
  const std::string_view scientific(text, static_cast<std::size_t>(end - text));
  const std::size_t mark = scientific.find('e');
  int exponent = 0;
  const char* exponentText = text + mark + 1 + (text[mark + 1] == '+' ? 1 : 0);
  std::from_chars(exponentText, end, exponent);
  if (exponent < -4 || exponent > 16) return std::string(scientific);
  char fixed[64];
  const auto fixedEnd = std::to_chars(fixed, fixed + sizeof fixed, value, std::chars_format::fixed).ptr;
  return std::string(fixed, fixedEnd);
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
  // from_chars also reads "nan" and "inf", which are no numbers here.
  std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
  if (digits.starts_with('.')) digits.remove_prefix(1);
  if (digits.empty() || digits[0] < '0' || digits[0] > '9') return std::nullopt;
  return readDouble(text);
}

std::string formatText(std::string_view pattern, std::initializer_list<Value> arguments) {
  std::string text;
  text.reserve(pattern.size() + arguments.size() * 16);
  auto argument = arguments.begin();
  while (!pattern.empty()) {
    const std::size_t percent = std::min(pattern.find('%'), pattern.size());
    text.append(pattern, 0, percent);
    pattern.remove_prefix(percent);
    if (pattern.empty()) break;
    if (pattern.starts_with("%%")) {
      text += '%';
      pattern.remove_prefix(2);
      continue;
    }
    const std::size_t length = pattern.starts_with("%@") || pattern.starts_with("%f") ? 2
                               : pattern.starts_with("%ld")                           ? 3
                                                                                      : 0;
    if (length == 0 || argument == arguments.end()) {
      text += '%';
      pattern.remove_prefix(1);
      continue;
    }
    if (pattern[1] == 'f') {
      text += fixedTextOfDouble(argument->doubleValue(), 6);
    } else if (pattern[1] == 'l') {
      text += textOfInteger(argument->integerValue());
    } else {
      text += argument->description();
    }
    ++argument;
    pattern.remove_prefix(length);
  }
  return text;
}

}  // namespace zorvane::platform
