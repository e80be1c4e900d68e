// Writes a generated value as XML in the many ways that other writers might choose, and reads it back.
#include <charconv>
#include <cmath>
#include <cstdio>

#include "Check.h"
#include "Generate.h"
#include "Platform/Formats/XMLPropertyList.h"
#include "Platform/Text/NumberText.h"
#include "Platform/Time/CivilTime.h"

using namespace zorvane;
using platform::Value;

namespace {

// Each choice of spelling takes a byte of the input.
class Writer {
 public:
  explicit Writer(fuzz::Input& choices) : choices_(choices) {}

  std::string document(const Value& root) {
    const bool hasHead = oneOf(2) == 0;
    if (hasHead) out_ += "<?xml version='1.0' encoding=\"UTF-8\"?>\n";
    if (oneOf(2) == 0) out_ += "<!DOCTYPE plist PUBLIC \"-//X//DTD PLIST 1.0//EN\" \"http://x/y.dtd\">";
    const bool isWrapped = oneOf(2) == 0;
    if (isWrapped) out_ += "<plist version=\"1.0\">";
    element(root);
    between();
    if (isWrapped) out_ += "</plist>";
    return std::move(out_);
  }

 private:
  unsigned oneOf(unsigned count) { return choices_.byte() % count; }

  void between() {
    static constexpr const char* kBetween[] = {"", "\n\t", " ", "<!-- <a> & -- -->", "<?b c?>"};
    out_ += kBetween[oneOf(5)];
  }
  void open(const char* name) {
    static constexpr const char* kRests[] = {">", " >", " a=\"'>\">", " b = '/'>"};
    between();
    out_ += '<';
    out_ += name;
    out_ += kRests[oneOf(4)];
  }
  void close(const char* name) {
    out_ += "</";
    out_ += name;
    out_ += oneOf(2) == 0 ? ">" : "\n>";
  }
  void simple(const char* name, std::string_view content) {
    open(name);
    out_ += content;
    close(name);
  }

  void text(const char* name, std::string_view content) {
    open(name);
    while (!content.empty()) {
      std::size_t length = 1;
      while (length < content.size() && (static_cast<unsigned char>(content[length]) & 0xC0U) == 0x80) ++length;
      const std::string_view character = content.substr(0, length);
      content.remove_prefix(length);
      const unsigned spelling = oneOf(4);
      if (character.size() == 1 && (spelling == 0 || character == "<" || character == "&")) {
        char reference[16];
        const unsigned code = static_cast<unsigned char>(character[0]);
        std::snprintf(reference, sizeof reference, oneOf(2) == 0 ? "&#%u;" : "&#x%X;", code);
        out_ += reference;
      } else if (spelling == 1 && character != "]") {
        out_ += "<![CDATA[";
        out_ += character;
        out_ += "]]>";
      } else {
        out_ += character;
      }
    }
    close(name);
  }

  void integer(std::int64_t number) {
    std::string digits = number < 0 ? "-" : oneOf(2) == 0 ? "+" : "";
    const std::uint64_t magnitude =
        number < 0 ? ~static_cast<std::uint64_t>(number) + 1 : static_cast<std::uint64_t>(number);
    const bool isHexadecimal = oneOf(2) == 0;
    if (isHexadecimal) digits += "0x";
    char buffer[24];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, magnitude, isHexadecimal ? 16 : 10).ptr;
    simple("integer", digits.append(buffer, end));
  }

  void data(const std::vector<std::uint8_t>& bytes) {
    static constexpr char kSextets[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string base64;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
      std::uint32_t bits = 0;
      for (std::size_t k = i; k < i + 3; ++k) bits = bits << 8 | (k < bytes.size() ? bytes[k] : 0U);
      for (unsigned k = 0; k < 4; ++k) base64 += k <= bytes.size() - i ? kSextets[bits >> (18 - 6 * k) & 63U] : '=';
      if (oneOf(8) == 0) base64 += "\n\t";
    }
    simple("data", base64);
  }

  void date(platform::Date date) {
    const platform::CivilTime time = platform::civilTimeFromSeconds(static_cast<std::int64_t>(date.secondsSince1970));
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02dZ", static_cast<int>(time.year), time.month,
                  time.day, time.hour, time.minute, time.second);
    simple("date", buffer);
  }

  void element(const Value& value) {
    using Kind = platform::ValueKind;
    switch (value.kind()) {
      case Kind::Bool:
        between();
        out_ += *value.asBool() ? "<true/>" : "<false />";
        break;
      case Kind::Integer:
        return integer(*value.asInteger());
      case Kind::Double: {
        std::string digits = platform::textOfDouble(*value.asDouble());
        if (std::isnan(*value.asDouble())) digits = "nan";
        return simple("real", digits);
      }
      case Kind::Date:
        return date(*value.asDate());
      case Kind::Data:
        return data(value.asData()->bytes);
      case Kind::String:
        return text("string", *value.asString());
      case Kind::Array:
        open("array");
        for (const Value& each : *value.asArray()) element(each);
        between();
        return close("array");
      case Kind::Dictionary:
        open("dict");
        for (const auto& [key, each] : *value.asDictionary()) {
          text("key", key);
          element(each);
        }
        between();
        return close("dict");
      default:
        return element(value.asObject()->plainValue());
    }
  }

  fuzz::Input& choices_;
  std::string out_;
};

// XML has one form for a UID and for a dictionary that looks like one.
Value withoutUIDLookalikes(const Value& value) {
  if (value.isArray()) {
    platform::Array array;
    for (const Value& each : *value.asArray()) array.push_back(withoutUIDLookalikes(each));
    return array;
  }
  if (!value.isDictionary()) return value;
  platform::Dictionary dictionary;
  for (const auto& [key, each] : *value.asDictionary()) {
    dictionary.set(key == "CF$UID" ? "another" : key, withoutUIDLookalikes(each));
  }
  return dictionary;
}

std::string utf16(std::string_view text, bool isBigEndian) {
  std::string wide = isBigEndian ? "\xFE\xFF" : "\xFF\xFE";
  const auto unit = [&](std::uint32_t code) {
    const char high = static_cast<char>(code >> 8 & 0xFF);
    const char low = static_cast<char>(code & 0xFF);
    wide += isBigEndian ? high : low;
    wide += isBigEndian ? low : high;
  };
  for (std::size_t i = 0; i < text.size();) {
    const auto first = static_cast<unsigned char>(text[i++]);
    const int following = first < 0x80 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
    std::uint32_t code = following == 0 ? first : first & (0x3FU >> following);
    for (int k = 0; k < following; ++k) code = code << 6 | (static_cast<unsigned char>(text[i++]) & 0x3FU);
    if (code >= 0x10000) unit(0xD800 + ((code - 0x10000) >> 10));
    unit(code >= 0x10000 ? 0xDC00 + ((code - 0x10000) & 0x3FF) : code);
  }
  return wide;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  fuzz::Input input(data, size);
  const Value value = withoutUIDLookalikes(fuzz::propertyListValue(input));
  const unsigned encoding = input.byte() % 4;
  std::string document = Writer(input).document(value);
  const bool isWrapped = document.ends_with("</plist>");
  if (encoding == 1 || encoding == 2) document = utf16(document, encoding == 1);
  if (encoding == 3) document.insert(0, "\xEF\xBB\xBF");
  const auto read = platform::parseXMLPropertyList(document);
  fuzz::check(static_cast<bool>(read), "a sound document is read");
  fuzz::check(fuzz::same(read.value(), value), "and gives what was written");
  const auto cut = platform::parseXMLPropertyList(std::string_view(document).substr(0, document.size() / 2));
  fuzz::check(!cut || !isWrapped, "half a document is none");
  return 0;
}
