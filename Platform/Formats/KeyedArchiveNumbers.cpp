#include "Platform/Formats/KeyedArchiveNumbers.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <string>

#include "Platform/Text/NumberText.h"

namespace zorvane::platform::archive {
namespace {

constexpr std::size_t kWords = 8;

// The decimal digits of a number given as 16-bit words, lowest word first.
std::string digitsOfWords(std::array<std::uint32_t, kWords> words) {
  std::string digits;
  std::uint32_t left = 0;
  do {
    left = 0;
    std::uint32_t rest = 0;
    for (std::size_t i = kWords; i-- > 0;) {
      const std::uint32_t part = rest << 16 | words[i];
      words[i] = part / 10;
      left |= words[i];
      rest = part % 10;
    }
    digits.insert(digits.begin(), static_cast<char>('0' + rest));
  } while (left != 0);
  return digits;
}

Value numberOfText(std::string_view text) {
  std::int64_t integer = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), integer);
  if (error == std::errc() && end == text.data() + text.size()) return integer;
  const auto number = leadingDouble(text);
  return number ? Value(*number) : Value();
}

}  // namespace

Value decimalNumber(const Dictionary& entry) {
  if (const Value text = entry.objectForKey("NS.string"); text.isString()) return numberOfText(*text.asString());
  constexpr std::int64_t kBigEndianOrder = 2;
  constexpr int kShortExponent = 18;
  const Value mantissa = entry.objectForKey("NS.mantissa");
  const Value length = entry.objectForKey("NS.length");
  const Value exponent = entry.objectForKey("NS.exponent");
  const Value negative = entry.objectForKey("NS.negative");
  const Value order = entry.objectForKey("NS.mantissa.bo");
  if (!mantissa.asData() || mantissa.asData()->bytes.size() != 2 * kWords || !length.asInteger() ||
      !exponent.asInteger() || !(negative.isNil() || negative.isNumber()) || !(order.isNil() || order.asInteger())) {
    return {};
  }
  if (*exponent.asInteger() < -128 || *exponent.asInteger() > 127) return {};
  if (*length.asInteger() < 0 || *length.asInteger() > static_cast<std::int64_t>(kWords)) return {};
  // No words and a minus sign mean not-a-number.
  if (*length.asInteger() == 0 && negative.boolValue()) return std::numeric_limits<double>::quiet_NaN();
  const bool isBigEndian = !order.isNil() && *order.asInteger() == kBigEndianOrder;
  std::array<std::uint32_t, kWords> words{};
  for (std::size_t i = 0; i < static_cast<std::size_t>(*length.asInteger()); ++i) {
    const std::uint32_t first = mantissa.asData()->bytes[2 * i];
    const std::uint32_t second = mantissa.asData()->bytes[2 * i + 1];
    words[i] = isBigEndian ? first << 8 | second : second << 8 | first;
  }
  std::string digits;
  if (negative.boolValue()) digits += '-';
  digits += digitsOfWords(words);
  const auto power = static_cast<int>(*exponent.asInteger());
  if (power >= 0 && power <= kShortExponent) {
    digits.append(static_cast<std::size_t>(power), '0');
    return numberOfText(digits);
  }
  return numberOfText(digits + "e" + textOfInteger(power));
}

}  // namespace zorvane::platform::archive
