#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "Platform/Values/Value.h"

namespace zorvane::platform {

// An argument of formatText. Refers to what it is made from, which must live until the call returns; copies nothing.
class FormatArgument {
 public:
  FormatArgument(const Value& value) noexcept : value_(&value), kind_(Kind::Value) {}
  FormatArgument(const char* text) noexcept : FormatArgument(std::string_view(text)) {}
  FormatArgument(const std::string& text) noexcept : FormatArgument(std::string_view(text)) {}
  FormatArgument(std::string_view text) noexcept : text_(text), kind_(Kind::Text) {}
  template <IntegerValue T>
  FormatArgument(T number) noexcept : integer_(number), kind_(Kind::Integer) {}
  FormatArgument(double number) noexcept : double_(number), kind_(Kind::Double) {}

  // "%@".
  std::string description() const;
  // As of a Value.
  std::int64_t integerValue() const;
  double doubleValue() const;

 private:
  enum class Kind : std::uint8_t { Value, Text, Integer, Double };
  Value asValue() const;

  union {
    const Value* value_;
    std::string_view text_;
    std::int64_t integer_;
    double double_;
  };
  Kind kind_;
};

// The pattern with each placeholder ("%@", "%ld", "%f") replaced by the next argument, and "%%" by a percent sign. An
// argument's text is never read as a pattern. A placeholder without an argument stays as it is.
std::string formatText(std::string_view pattern, std::initializer_list<FormatArgument> arguments);

}  // namespace zorvane::platform
