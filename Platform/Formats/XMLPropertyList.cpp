#include "Platform/Formats/XMLPropertyList.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Formats/XMLText.h"
#include "Platform/Text/Ascii.h"
#include "Platform/Text/NumberText.h"
#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

bool isBlank(char character) {
  return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

using EntryTaker = std::function<void(std::string_view key, const Value&)>;

class Parser {
 public:
  Parser(std::string_view text, const EntryTaker& take) : text_(text), take_(take) {}

  Result<Value> parse() {
    Value value;
    if (parseDocument(value)) return value;
    return Error{std::move(error_), 0};
  }

 private:
  struct Tag {
    std::string_view name;
    std::size_t position = 0;
    bool isClosing = false;
    bool isEmpty = false;
  };

  // Every step returns false on failure, after the first failure has set error_.
  bool fail(std::string_view what) { return failAt(what, position_); }
  bool failAt(std::string_view what, std::size_t position) {
    error_ = "no property list: ";
    error_ += textAtByte(what, position);
    return false;
  }

  bool startsWith(std::string_view text) const { return text_.substr(position_, text.size()) == text; }
  bool skipPast(std::string_view end, std::string_view missing) {
    const std::size_t found = text_.find(end, position_);
    if (found == std::string_view::npos) return fail(missing);
    position_ = found + end.size();
    return true;
  }

  // Skips blanks, comments and processing instructions.
  bool skipToTag() {
    for (;;) {
      while (position_ < text_.size() && isBlank(text_[position_])) ++position_;
      if (startsWith("<!--")) {
        if (!skipPast("-->", "a comment without an end")) return false;
      } else if (startsWith("<?")) {
        if (!skipPast("?>", "an instruction without an end")) return false;
      } else if (startsWith("<")) {
        return true;
      } else {
        return fail(position_ == text_.size() ? "an element is missing" : "text between elements");
      }
    }
  }

  bool readTag(Tag& tag) {
    tag = Tag{};
    tag.position = position_++;
    if (startsWith("/")) {
      tag.isClosing = true;
      ++position_;
    }
    const std::size_t nameStart = position_;
    while (position_ < text_.size() && text_[position_] >= 'a' && text_[position_] <= 'z') ++position_;
    tag.name = text_.substr(nameStart, position_ - nameStart);
    // Skip attributes; a quoted value may contain ">".
    char quote = '\0';
    for (; position_ < text_.size(); ++position_) {
      const char character = text_[position_];
      if (quote != '\0') {
        if (character == quote) quote = '\0';
      } else if (character == '"' || character == '\'') {
        quote = character;
      } else if (character == '>') {
        tag.isEmpty = text_[position_ - 1] == '/' && position_ - 1 > tag.position + (tag.isClosing ? 1U : 0U);
        const std::size_t behindName = nameStart + tag.name.size();
        if (!isBlank(text_[behindName]) && text_[behindName] != '>' && text_[behindName] != '/') break;
        ++position_;
        return true;
      }
    }
    return failAt("an unknown or unfinished tag", tag.position);
  }

  bool readClosingTag(std::string_view name) {
    if (!skipToTag()) return false;
    return readClosingTagHere(name);
  }
  bool readClosingTagHere(std::string_view name) {
    const std::size_t position = position_;
    Tag tag;
    if (!startsWith("</") || !readTag(tag) || tag.name != name) {
      return failAt("the end of <" + std::string(name) + "> is missing", position);
    }
    return true;
  }

  bool parseDocument(Value& value) {
    if (!skipToTag()) return false;
    if (startsWith("<!DOCTYPE")) {
      const std::size_t end = std::min(text_.find_first_of("[>", position_), text_.size());
      if (text_.substr(end, 1) != ">") return fail("an unsound document type");
      position_ = end + 1;
      if (!skipToTag()) return false;
    }
    Tag tag;
    if (!readTag(tag)) return false;
    if (tag.name != "plist" || tag.isClosing) return parseElement(tag, 0, value);
    if (tag.isEmpty) return failAt("an empty list", tag.position);
    return skipToTag() && readTag(tag) && parseElement(tag, 0, value) && readClosingTag("plist");
  }

  bool parseElement(const Tag& tag, int depth, Value& value) {
    constexpr std::size_t kMaxValues = DecodingAllowance{}.values;
    if (tag.isClosing) return failAt("an end without a beginning", tag.position);
    if (++count_ > kMaxValues) return failAt("too many values", tag.position);
    if (tag.name == "string") {
      std::string text;
      if (!readText(tag, text)) return false;
      value = text;
      return true;
    }
    if (tag.name == "array" || tag.name == "dict") {
      if (depth == kMaxPropertyListDepth) return failAt("too many levels", tag.position);
      return tag.name == "array" ? parseArray(tag, depth, value) : parseDictionary(tag, depth, value);
    }
    if (tag.name == "true" || tag.name == "false") {
      value = tag.name == "true";
      return tag.isEmpty || readClosingTagHere(tag.name);
    }
    std::optional<Value> (*reading)(std::string_view) = tag.name == "integer" ? integerOfXMLText
                                                        : tag.name == "real"  ? realOfXMLText
                                                        : tag.name == "date"  ? dateOfXMLText
                                                        : tag.name == "data"  ? dataOfXMLText
                                                                              : nullptr;
    if (!reading || tag.isEmpty) return failAt("an unknown or empty element", tag.position);
    const std::size_t start = position_;
    position_ = std::min(text_.find('<', start), text_.size());
    const std::optional<Value> read = reading(text_.substr(start, position_ - start));
    if (!read) return failAt("an unsound " + std::string(tag.name), start);
    value = *read;
    return readClosingTagHere(tag.name);
  }

  bool parseArray(const Tag& tag, int depth, Value& value) {
    Array array;
    Tag next = tag;
    while (!tag.isEmpty) {
      if (!skipToTag() || !readTag(next)) return false;
      if (next.isClosing && next.name == tag.name) break;
      if (!parseElement(next, depth + 1, array.emplace_back())) return false;
    }
    value = Value(std::move(array));
    return true;
  }

  bool parseDictionary(const Tag& tag, int depth, Value& value) {
    Dictionary dictionary;
    Tag next = tag;
    while (!tag.isEmpty) {
      if (!skipToTag() || !readTag(next)) return false;
      if (next.isClosing && next.name == tag.name) break;
      if (next.name != "key" || next.isClosing) return failAt("a key is missing", next.position);
      std::string key;
      ++count_;
      Value element;
      if (!readText(next, key) || !skipToTag() || !readTag(next) || !parseElement(next, depth + 1, element)) {
        return false;
      }
      if (depth == 0 && take_) {
        take_(key, element);
        count_ = 0;
      } else {
        dictionary.set(key, std::move(element));
      }
    }
    // XML has no element for a UID; this is how one is written.
    const Value* uid = dictionary.size() == 1 ? dictionary.find("CF$UID") : nullptr;
    const std::int64_t* index = uid ? uid->asInteger() : nullptr;
    if (index && *index >= 0 && *index <= std::numeric_limits<std::uint32_t>::max()) {
      value = std::make_shared<const PropertyListUID>(static_cast<std::uint32_t>(*index));
    } else {
      value = Value(std::move(dictionary));
    }
    return true;
  }

  // The text up to the closing tag.
  bool readText(const Tag& tag, std::string& out) {
    if (tag.isEmpty) return true;
    constexpr std::string_view kCharacterData = "<![CDATA[";
    const std::size_t start = position_;
    for (;;) {
      const std::size_t end = std::min(text_.find_first_of("<&", position_), text_.size());
      out += text_.substr(position_, end - position_);
      position_ = end;
      if (startsWith("&")) {
        if (!readReference(out)) return false;
      } else if (startsWith(kCharacterData)) {
        position_ += kCharacterData.size();
        const std::size_t dataStart = position_;
        if (!skipPast("]]>", "character data without an end")) return false;
        out += text_.substr(dataStart, position_ - 3 - dataStart);
      } else {
        break;
      }
    }
    if (!isValidUtf8(out)) return failAt("text that is no UTF-8", start);
    return readClosingTagHere(tag.name);
  }

  bool readReference(std::string& out) {
    constexpr std::size_t kMaxLength = 10;  // "#" and "x" included
    constexpr std::array<std::pair<std::string_view, char>, 5> kNamed = {
        {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"apos", '\''}, {"quot", '"'}}};
    const std::size_t length = text_.substr(position_ + 1, kMaxLength + 1).find(';');
    if (length == std::string_view::npos) return fail("an unsound reference");
    std::string_view name = text_.substr(position_ + 1, length);
    for (const auto& [known, character] : kNamed) {
      if (name != known) continue;
      out += character;
      position_ += length + 2;
      return true;
    }
    if (!name.starts_with('#')) return fail("an unknown reference");
    name.remove_prefix(1);
    const int base = name.starts_with('x') ? 16 : 10;
    if (base == 16) name.remove_prefix(1);
    const auto character = wholeUnsigned(name, base);
    if (!character || *character > 0x10FFFF || isSurrogate(static_cast<std::uint32_t>(*character))) {
      return fail("a reference to no character");
    }
    appendUtf8(static_cast<std::uint32_t>(*character), out);
    position_ += length + 2;
    return true;
  }

  std::string_view text_;
  const EntryTaker& take_;
  std::size_t position_ = 0;
  std::size_t count_ = 0;
  std::string error_;
};

std::string fromUtf16(std::string_view bytes, bool isBigEndian) {
  std::string text;
  text.reserve(bytes.size());
  const auto unit = [&](std::size_t i) {
    const auto first = static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[2 * i]));
    const auto second = static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[2 * i + 1]));
    return isBigEndian ? first << 8 | second : second << 8 | first;
  };
  appendUtf16AsUtf8(bytes.size() / 2, unit, text);
  return text;
}

// The encoding that the XML declaration names, in lower case; empty if it names none.
std::string declaredEncoding(std::string_view bytes) {
  if (!bytes.starts_with("<?xml")) return {};
  const std::string_view head = bytes.substr(0, std::min(bytes.find("?>"), bytes.size()));
  const std::size_t name = head.find("encoding");
  const std::size_t start = name == std::string_view::npos ? name : head.find_first_of("\"'", name);
  if (start == std::string_view::npos) return {};
  const std::size_t end = head.find(head[start], start + 1);
  std::string encoding(head.substr(start + 1, end == std::string_view::npos ? end : end - start - 1));
  for (char& c : encoding) c = asciiLowerCase(c);
  return encoding;
}

}  // namespace

Result<Value> parseXMLPropertyList(std::string_view bytes, const EntryTaker& take) {
  const auto startsWith = [bytes](char first, char second) {
    return bytes.size() >= 2 && bytes[0] == first && bytes[1] == second;
  };
  const bool hasMark = startsWith('\xFE', '\xFF') || startsWith('\xFF', '\xFE');
  const bool isBigEndian = startsWith('\xFE', '\xFF') || startsWith('\0', '<');
  std::string converted;
  if (isBigEndian || hasMark || startsWith('<', '\0')) {
    converted = fromUtf16(bytes.substr(hasMark ? 2 : 0), isBigEndian);
    bytes = converted;
  } else if (bytes.starts_with("\xEF\xBB\xBF")) {
    bytes.remove_prefix(3);
  } else {
    const std::string encoding = declaredEncoding(bytes);
    if (encoding == "iso-8859-1" || encoding == "latin1") {
      for (const char byte : bytes) appendUtf8(static_cast<unsigned char>(byte), converted);
      bytes = converted;
    } else if (!encoding.empty() && encoding != "utf-8" && encoding != "utf8" && encoding != "us-ascii" &&
               encoding != "ascii") {
      return Error{"no property list: an unknown encoding is declared at byte 0", 0};
    }
  }
  return Parser(bytes, take).parse();
}

}  // namespace zorvane::platform
