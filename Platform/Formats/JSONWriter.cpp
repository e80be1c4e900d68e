#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "Platform/Formats/JSON.h"
#include "Platform/Formats/JSONText.h"
#include "Platform/Formats/PropertyList.h"
#include "Platform/Text/Hex.h"
#include "Platform/Text/NumberText.h"
#include "Platform/Time/DateFormat.h"

namespace zorvane::platform {
namespace {

constexpr int kMaxDepth = 512;

// For each byte: 0 if it is written as it is, 'u' for \u00XX, else the letter after the backslash.
constexpr std::array<char, 256> makeEscapes() {
  std::array<char, 256> escapes{};
  for (std::size_t i = 0; i < 0x20; ++i) escapes[i] = 'u';
  escapes['"'] = '"';
  escapes['\\'] = '\\';
  escapes['\b'] = 'b';
  escapes['\f'] = 'f';
  escapes['\n'] = 'n';
  escapes['\r'] = 'r';
  escapes['\t'] = 't';
  return escapes;
}
constexpr std::array<char, 256> kEscapes = makeEscapes();

// Whether one of the eight bytes has an escape: a control character, a quote or a backslash.
bool hasEscape(std::uint64_t bytes) {
  constexpr std::uint64_t kOnes = 0x0101010101010101U;
  const std::uint64_t quotes = bytes ^ (kOnes * '"');
  const std::uint64_t backslashes = bytes ^ (kOnes * '\\');
  return ((((bytes - kOnes * 0x20) & ~bytes) | ((quotes - kOnes) & ~quotes) | ((backslashes - kOnes) & ~backslashes)) &
          (kOnes * 0x80)) != 0;
}

// The position of the first byte with an escape, from `position` on, or the end.
std::size_t nextEscape(std::string_view text, std::size_t position) {
  std::uint64_t block;
  for (; text.size() - position >= sizeof block; position += sizeof block) {
    std::memcpy(&block, text.data() + position, sizeof block);
    if (hasEscape(block)) break;
  }
  while (position < text.size() && kEscapes[static_cast<unsigned char>(text[position])] == 0) ++position;
  return position;
}

class FunctionJSON final : public LazyJSON {
 public:
  FunctionJSON(std::function<void(std::string&)> writer, std::function<Value()> plainValue)
      : writer_(std::move(writer)), plainValue_(std::move(plainValue)) {}

  void appendTo(std::string& out) const override { writer_(out); }
  Value plainValue() const override { return plainValue_(); }

 private:
  std::function<void(std::string&)> writer_;
  std::function<Value()> plainValue_;
};

void appendDouble(double number, std::string& out) {
  if (!std::isfinite(number)) {
    out += "null";
    return;
  }
  const std::string text = textOfDouble(number);
  out += text;
  if (text.find_first_of(".e") == std::string::npos) out += ".0";
}

void appendDate(Date date, std::string& out) {
  const Text text = isoTextOfDate(date, 0, "Z");
  if (text.empty()) {
    out += "null";
  } else {
    appendJSONString(text, out);
  }
}

void appendData(const Data& data, std::string& out) {
  out += '"';
  appendHex(out, data.bytes);
  out += '"';
}

void append(const Value& value, int depth, std::string& out);

void appendObject(const Object& object, int depth, std::string& out) {
  if (const auto* lazy = object.as<LazyJSON>()) {
    lazy->appendTo(out);
  } else if (object.as<LargeInteger>()) {
    out += object.description();
  } else {
    append(plainValueOf(object), depth, out);
  }
}

void append(const Value& value, int depth, std::string& out) {
  switch (value.kind()) {
    case Value::Kind::Nil:
    case Value::Kind::Null:
      out += "null";
      return;
    case Value::Kind::Bool:
      out += *value.asBool() ? "true" : "false";
      return;
    case Value::Kind::Integer:
      out += textOfInteger(*value.asInteger());
      return;
    case Value::Kind::Double:
      return appendDouble(*value.asDouble(), out);
    case Value::Kind::String:
      return appendJSONString(*value.asString(), out);
    case Value::Kind::Data:
      return appendData(*value.asData(), out);
    case Value::Kind::Date:
      return appendDate(*value.asDate(), out);
    case Value::Kind::URL:
      return appendJSONString(value.asURL()->absoluteString, out);
    case Value::Kind::Object:
      return appendObject(*value.asObject(), depth, out);
    case Value::Kind::Array:
    case Value::Kind::Dictionary:
      break;
  }
  if (depth == kMaxDepth) {
    out += "null";
    return;
  }
  const bool isArray = value.isArray();
  out += isArray ? '[' : '{';
  const std::size_t start = out.size();
  if (isArray) {
    for (const Value& element : *value.asArray()) {
      if (out.size() != start) out += ',';
      append(element, depth + 1, out);
    }
  } else {
    for (const auto& [key, element] : *value.asDictionary()) {
      if (out.size() != start) out += ',';
      appendJSONString(key, out);
      out += ':';
      append(element, depth + 1, out);
    }
  }
  out += isArray ? ']' : '}';
}

}  // namespace

void appendJSONString(std::string_view text, std::string& out) {
  out += '"';
  std::size_t written = 0;
  for (std::size_t i = nextEscape(text, 0); i < text.size(); i = nextEscape(text, written)) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const char escape = kEscapes[byte];
    out.append(text, written, i - written);
    written = i + 1;
    out += '\\';
    out += escape;
    if (escape == 'u') {
      out += "00";
      appendHex(out, {&byte, 1});
    }
  }
  out.append(text, written);
  out += '"';
}

void appendJSON(const Value& value, std::string& out) {
  append(value, 0, out);
}

std::string jsonText(const Value& value) {
  std::string text;
  appendJSON(value, text);
  return text;
}

std::shared_ptr<const Object> lazyJSON(std::function<void(std::string& out)> writer,
                                       std::function<Value()> plainValue) {
  return std::make_shared<FunctionJSON>(std::move(writer), std::move(plainValue));
}

}  // namespace zorvane::platform
