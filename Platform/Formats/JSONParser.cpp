#include <charconv>
#include <cmath>

#include "Platform/Formats/JSON.h"
#include "Platform/Text/Ascii.h"
#include "Platform/Text/NumberText.h"
#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

class Parser {
 public:
  Parser(std::string_view text, JSONLimits limits) : text_(text), limits_(limits) {}

  Result<Value> parse() {
    Value value;
    if (!parseValue(0, value)) return Error{std::move(error_), 0};
    skipBlanks();
    if (position_ != text_.size()) {
      fail("something stands behind the value");
      return Error{std::move(error_), 0};
    }
    return value;
  }

 private:
  // Every step returns false on failure, after the first failure has set error_.
  bool fail(std::string_view what) { return failAt(what, position_); }
  bool failAt(std::string_view what, std::size_t position) {
    error_ = textAtByte(what, position);
    return false;
  }

  // The next character; 0 at the end. The grammar has no zero byte.
  char peek() const { return position_ < text_.size() ? text_[position_] : '\0'; }
  bool isDigit() const { return isAsciiDigit(peek()); }
  void skipBlanks() {
    while (peek() == ' ' || peek() == '\n' || peek() == '\r' || peek() == '\t') ++position_;
  }
  bool take(char character) {
    if (peek() != character) return false;
    ++position_;
    return true;
  }

  bool parseValue(std::size_t depth, Value& value) {
    skipBlanks();
    if (++count_ > limits_.values) return fail("too many values");
    switch (peek()) {
      case '{':
        return parseDictionary(depth, value);
      case '[':
        return parseArray(depth, value);
      case '"': {
        std::string text;
        if (!parseString(text)) return false;
        value = text;
        return true;
      }
      case 't':
        return parseWord("true", true, value);
      case 'f':
        return parseWord("false", false, value);
      case 'n':
        return parseWord("null", null, value);
      default:
        return parseNumber(value);
    }
  }

  bool parseWord(std::string_view word, Value meaning, Value& value) {
    if (text_.substr(position_, word.size()) != word) return fail("an unknown word");
    position_ += word.size();
    value = std::move(meaning);
    return true;
  }

  bool parseArray(std::size_t depth, Value& value) {
    if (depth >= limits_.depth) return fail("too many levels");
    ++position_;
    Array array;
    skipBlanks();
    if (!take(']')) {
      do {
        if (!parseValue(depth + 1, array.emplace_back())) return false;
        skipBlanks();
      } while (take(','));
      if (!take(']')) return fail("a comma or the array's end is missing");
    }
    value = Value(std::move(array));
    return true;
  }

  bool parseDictionary(std::size_t depth, Value& value) {
    if (depth >= limits_.depth) return fail("too many levels");
    ++position_;
    Dictionary dictionary;
    skipBlanks();
    if (!take('}')) {
      do {
        skipBlanks();
        if (peek() != '"') return fail("a key is missing");
        std::string key;
        if (!parseString(key)) return false;
        ++count_;
        skipBlanks();
        if (!take(':')) return fail("a colon is missing");
        Value element;
        if (!parseValue(depth + 1, element)) return false;
        dictionary.set(key, std::move(element));
        skipBlanks();
      } while (take(','));
      if (!take('}')) return fail("a comma or the object's end is missing");
    }
    value = Value(std::move(dictionary));
    return true;
  }

  bool parseString(std::string& out) {
    const std::size_t start = position_++;
    for (;;) {
      const std::size_t runStart = position_;
      while (position_ < text_.size() && text_[position_] != '"' && text_[position_] != '\\' &&
             static_cast<unsigned char>(text_[position_]) >= 0x20) {
        ++position_;
      }
      const std::string_view run = text_.substr(runStart, position_ - runStart);
      if (!isValidUtf8(run)) return failAt("text that is no UTF-8", runStart);
      out += run;
      if (position_ == text_.size()) return failAt("text without an end", start);
      if (take('"')) return true;
      if (!take('\\')) return fail("a raw control character");
      if (!parseEscape(out)) return false;
    }
  }

  bool parseEscape(std::string& out) {
    constexpr std::string_view kLetters = "\"\\/bfnrt";
    constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
    const char letter = peek();
    const std::size_t index = letter == '\0' ? std::string_view::npos : kLetters.find(letter);
    if (index != std::string_view::npos) {
      ++position_;
      out += kMeanings[index];
      return true;
    }
    if (letter != 'u') return fail("an unknown escape");
    std::uint32_t units[2] = {};
    if (!parseUnit(units[0])) return false;
    std::size_t count = 1;
    if (isSurrogate(units[0]) && text_.substr(position_, 2) == "\\u") {
      const std::size_t before = position_++;
      if (!parseUnit(units[1])) return false;
      if (units[0] <= 0xDBFF && units[1] >= 0xDC00 && units[1] <= 0xDFFF) {
        count = 2;
      } else {
        position_ = before;  // no low surrogate: read again by itself
      }
    }
    appendUtf16AsUtf8(
        count, [&](std::size_t i) { return units[i]; }, out);
    return true;
  }

  // "uXXXX"
  bool parseUnit(std::uint32_t& unit) {
    const std::string_view digits = text_.substr(std::min(position_ + 1, text_.size()), 4);
    const auto number = wholeUnsigned(digits, 16);
    if (digits.size() != 4 || !number) return fail("an unsound \\u escape");
    unit = static_cast<std::uint32_t>(*number);
    position_ += 5;
    return true;
  }

  bool skipDigits() {
    if (!isDigit()) return fail("a digit is missing");
    while (isDigit()) ++position_;
    return true;
  }

  bool parseNumber(Value& value) {
    const std::size_t start = position_;
    if (!isDigit() && peek() != '-') return fail("no value begins");
    take('-');
    if (!take('0') && !skipDigits()) return false;
    const std::size_t integerEnd = position_;
    if (take('.') && !skipDigits()) return false;
    if (take('e') || take('E')) {
      if (!take('+')) take('-');
      if (!skipDigits()) return false;
    }
    const std::string_view number = text_.substr(start, position_ - start);
    if (position_ == integerEnd) {
      std::int64_t integer = 0;
      if (std::from_chars(number.data(), number.data() + number.size(), integer).ec == std::errc()) {
        value = integer;
        return true;
      }
    }
    const double real = leadingDouble(number).value_or(0);
    if (!std::isfinite(real)) return failAt("a number out of range", start);
    value = real;
    return true;
  }

  std::string_view text_;
  JSONLimits limits_;
  std::size_t position_ = 0;
  std::size_t count_ = 0;
  std::string error_;
};

}  // namespace

Result<Value> parseJSON(std::string_view text, JSONLimits limits) {
  return Parser(text, limits).parse();
}

}  // namespace zorvane::platform
