#include "Platform/Formats/XMLText.h"

#include <cstdint>
#include <limits>
#include <string>

#include "Platform/Formats/PropertyList.h"
#include "Platform/Text/Ascii.h"
#include "Platform/Text/NumberText.h"
#include "Platform/Time/DateFormat.h"

namespace zorvane::platform {
namespace {

constexpr std::string_view kBlanks = " \t\n\r";

void skipBlanks(std::string_view& text) {
  while (!text.empty() && kBlanks.find(text[0]) != std::string_view::npos) text.remove_prefix(1);
}

// Removes a sign at the front; true for a minus.
bool takeSign(std::string_view& text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  return isNegative;
}

std::size_t takeDigits(std::string_view& text) {
  std::size_t count = 0;
  while (count < text.size() && isAsciiDigit(text[count])) ++count;
  text.remove_prefix(count);
  return count;
}

bool isDecimalNumber(std::string_view text) {
  takeSign(text);
  std::size_t digits = takeDigits(text);
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    digits += takeDigits(text);
  }
  if (digits == 0) return false;
  if (text.starts_with('e') || text.starts_with('E')) {
    text.remove_prefix(1);
    takeSign(text);
    if (takeDigits(text) == 0) return false;
  }
  return text.empty();
}

int sextetOf(char character) {
  if (character >= 'A' && character <= 'Z') return character - 'A';
  if (character >= 'a' && character <= 'z') return character - 'a' + 26;
  if (isAsciiDigit(character)) return character - '0' + 52;
  return character == '+' ? 62 : character == '/' ? 63 : -1;
}

}  // namespace

std::optional<Value> integerOfXMLText(std::string_view text) {
  skipBlanks(text);
  const bool isNegative = takeSign(text);
  skipBlanks(text);
  const int base = text.starts_with("0x") || text.starts_with("0X") ? 16 : 10;
  if (base == 16) text.remove_prefix(2);
  const auto number = wholeUnsigned(text, base);
  if (!number) return std::nullopt;
  if (!isNegative) return valueOfUnsigned(*number);
  if (*number > std::uint64_t{1} << 63) return std::nullopt;
  return Value(static_cast<std::int64_t>(~*number + 1));
}

std::optional<Value> realOfXMLText(std::string_view text) {
  skipBlanks(text);
  if (isDecimalNumber(text)) return Value(leadingDouble(text).value_or(0));
  const bool isNegative = takeSign(text);
  std::string word(text);
  for (char& c : word) c = asciiLowerCase(c);
  if (word == "nan") return Value(std::numeric_limits<double>::quiet_NaN());
  if (word != "inf" && word != "infinity") return std::nullopt;
  const double infinity = std::numeric_limits<double>::infinity();
  return Value(isNegative ? -infinity : infinity);
}

std::optional<Value> dateOfXMLText(std::string_view text) {
  // Files hold dates of the year 0, which dateOfText refuses. The calendar repeats every 400 years.
  constexpr double kSecondsIn400Years = 146097.0 * 86400;
  const bool isYear0 = text.starts_with("0000");
  std::string shifted(text);
  if (isYear0) shifted[1] = '4';
  const auto date = dateOfText(shifted, "yyyy-MM-dd'T'HH:mm:ss'Z'", 0);
  if (!date) return std::nullopt;
  return Value(Date{date->secondsSince1970 - (isYear0 ? kSecondsIn400Years : 0)});
}

std::optional<Value> dataOfXMLText(std::string_view text) {
  Data data;
  data.bytes.reserve(text.size() / 4 * 3);
  std::uint32_t bits = 0;
  int count = 0;
  std::size_t sextets = 0;
  std::size_t padding = 0;
  for (const char character : text) {
    if (kBlanks.find(character) != std::string_view::npos) continue;
    if (character == '=') {
      ++padding;
      continue;
    }
    const int sextet = sextetOf(character);
    if (sextet < 0 || padding != 0) return std::nullopt;
    bits = bits << 6 | static_cast<std::uint32_t>(sextet);
    count += 6;
    ++sextets;
    if (count >= 8) {
      count -= 8;
      data.bytes.push_back(static_cast<std::uint8_t>(bits >> count & 0xFF));
    }
  }
  if (sextets % 4 == 1 || padding > 2) return std::nullopt;
  return Value(std::move(data));
}

}  // namespace zorvane::platform
