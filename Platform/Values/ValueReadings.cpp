// Conversions, descriptions and comparison of values.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <utility>
#include <vector>

#include "Platform/Text/Hex.h"
#include "Platform/Text/NumberText.h"
#include "Platform/Time/CivilTime.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {
namespace {

// Values may be nested deeper than the stack allows.
constexpr std::size_t kMaxDescribedDepth = 512;

[[noreturn]] void throwNotConvertible(const Value& value, const char* wanted) {
  throw ValueError("no " + std::string(wanted) + " in " + value.description());
}

bool equalIntegerAndDouble(std::int64_t integer, double number) {
  constexpr double kLimit = 9223372036854775808.0;
  if (!(number >= -kLimit && number < kLimit)) return false;
  return static_cast<double>(static_cast<std::int64_t>(number)) == number &&
         static_cast<std::int64_t>(number) == integer;
}

bool equalNumbers(const Value& left, const Value& right) {
  const double* leftDouble = left.asDouble();
  const double* rightDouble = right.asDouble();
  if (leftDouble && rightDouble) return *leftDouble == *rightDouble;
  if (leftDouble) return equalIntegerAndDouble(right.integerValue(), *leftDouble);
  if (rightDouble) return equalIntegerAndDouble(left.integerValue(), *rightDouble);
  return left.integerValue() == right.integerValue();
}

// Pairs of containers whose elements are still to be compared. A list, not recursion: values may be nested deeper than
// the stack allows.
using ContainerPairs = std::vector<std::pair<const Value*, const Value*>>;

// Compares all but the elements of containers, which are added to pending.
bool equalShallow(const Value& left, const Value& right, ContainerPairs& pending) {
  if (left.isNumber() && right.isNumber()) return equalNumbers(left, right);
  if (left.kind() != right.kind()) return false;
  switch (left.kind()) {
    case Value::Kind::String:
      return *left.asString() == *right.asString();
    case Value::Kind::Data:
      return *left.asData() == *right.asData();
    case Value::Kind::Date:
      return *left.asDate() == *right.asDate();
    case Value::Kind::URL:
      return *left.asURL() == *right.asURL();
    case Value::Kind::Array:
      if (left.asArray() != right.asArray()) pending.emplace_back(&left, &right);
      return left.asArray()->size() == right.asArray()->size();
    case Value::Kind::Dictionary:
      if (left.asDictionary() != right.asDictionary()) pending.emplace_back(&left, &right);
      return left.asDictionary()->size() == right.asDictionary()->size();
    case Value::Kind::Object:
      return left.asObject()->isEqual(*right.asObject());
    default:
      return true;  // nil and the null marker
  }
}

bool equalElements(const Dictionary& left, const Dictionary& right, ContainerPairs& pending) {
  if (left.size() != right.size()) return false;
  for (const auto& [key, value] : left) {
    const Value* other = right.find(key);
    if (!other || !equalShallow(value, *other, pending)) return false;
  }
  return true;
}

bool equalPending(ContainerPairs& pending) {
  while (!pending.empty()) {
    const auto [left, right] = pending.back();
    pending.pop_back();
    if (const Dictionary* dictionary = left->asDictionary()) {
      if (!equalElements(*dictionary, *right->asDictionary(), pending)) return false;
      continue;
    }
    const Array& elements = *left->asArray();
    for (std::size_t i = 0; i < elements.size(); ++i) {
      if (!equalShallow(elements[i], (*right->asArray())[i], pending)) return false;
    }
  }
  return true;
}

void describe(const Value& value, std::size_t indent, std::string& out) {
  const bool isContainer = value.isArray() || value.isDictionary();
  if (isContainer && indent == 4 * kMaxDescribedDepth) {
    out += "...";
  } else if (const Array* array = value.asArray()) {
    out += "(\n";
    for (std::size_t i = 0; i < array->size(); ++i) {
      out.append(indent + 4, ' ');
      describe((*array)[i], indent + 4, out);
      out += i + 1 < array->size() ? ",\n" : "\n";
    }
    out.append(indent, ' ');
    out += ')';
  } else if (const Dictionary* dictionary = value.asDictionary()) {
    out += "{\n";
    for (const auto& [key, element] : *dictionary) {
      out.append(indent + 4, ' ');
      out += key;
      out += " = ";
      describe(element, indent + 4, out);
      out += ";\n";
    }
    out.append(indent, ' ');
    out += '}';
  } else {
    out += value.description();
  }
}

std::string describeData(const Data& data) {
  std::string text = "<";
  appendHex(text, data.bytes);
  return text += '>';
}

std::string describeDate(Date date) {
  // Beyond a million years, and for NaN: the seconds.
  constexpr double kReasonable = 3.2e13;
  if (!(std::abs(date.secondsSince1970) < kReasonable)) return textOfDouble(date.secondsSince1970);
  const CivilTime time = civilTimeFromSeconds(static_cast<std::int64_t>(std::floor(date.secondsSince1970)));
  char text[64];
  std::snprintf(text, sizeof text, "%04lld-%02d-%02d %02d:%02d:%02d +0000", static_cast<long long>(time.year),
                time.month, time.day, time.hour, time.minute, time.second);
  return text;
}

}  // namespace

std::int64_t Value::integerValue() const {
  switch (kind()) {
    case Kind::Nil:
      return 0;
    case Kind::Bool:
      return *asBool() ? 1 : 0;
    case Kind::Integer:
      return *asInteger();
    case Kind::Double: {
      constexpr double kLimit = 9223372036854775808.0;
      const double number = *asDouble();
      if (std::isnan(number)) return 0;
      if (number >= kLimit) return std::numeric_limits<std::int64_t>::max();
      if (number < -kLimit) return std::numeric_limits<std::int64_t>::min();
      return static_cast<std::int64_t>(number);
    }
    case Kind::String:
      return leadingInteger(*asString()).value_or(0);
    default:
      throwNotConvertible(*this, "integer");
  }
}

double Value::doubleValue() const {
  switch (kind()) {
    case Kind::Nil:
      return 0;
    case Kind::Bool:
      return *asBool() ? 1 : 0;
    case Kind::Integer:
      return static_cast<double>(*asInteger());
    case Kind::Double:
      return *asDouble();
    case Kind::String:
      return leadingDouble(*asString()).value_or(0);
    default:
      throwNotConvertible(*this, "number");
  }
}

bool Value::boolValue() const {
  switch (kind()) {
    case Kind::Nil:
      return false;
    case Kind::Bool:
      return *asBool();
    case Kind::Integer:
      return *asInteger() != 0;
    case Kind::Double:
      return *asDouble() != 0;
    case Kind::String: {
      std::string_view text = *asString();
      text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
      if (!text.empty() && (text[0] == '+' || text[0] == '-')) text.remove_prefix(1);
      text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
      return !text.empty() && std::string_view("123456789YyTt").find(text[0]) != std::string_view::npos;
    }
    default:
      throwNotConvertible(*this, "boolean");
  }
}

std::string Value::description() const {
  switch (kind()) {
    case Kind::Nil:
      return "(null)";
    case Kind::Null:
      return "<null>";
    case Kind::Bool:
      return *asBool() ? "1" : "0";
    case Kind::Integer:
      return textOfInteger(*asInteger());
    case Kind::Double:
      return textOfDouble(*asDouble());
    case Kind::String:
      return std::string(*asString());
    case Kind::Data:
      return describeData(*asData());
    case Kind::Date:
      return describeDate(*asDate());
    case Kind::URL:
      return asURL()->absoluteString;
    case Kind::Object:
      return asObject()->description();
    case Kind::Array:
    case Kind::Dictionary:
      break;
  }
  std::string text;
  describe(*this, 0, text);
  return text;
}

bool operator==(const Value& left, const Value& right) {
  ContainerPairs pending;
  return equalShallow(left, right, pending) && equalPending(pending);
}

bool operator==(const Dictionary& left, const Dictionary& right) {
  ContainerPairs pending;
  return equalElements(left, right, pending) && equalPending(pending);
}

}  // namespace zorvane::platform
