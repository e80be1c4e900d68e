#include <algorithm>

#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Formats/KeyedArchive.h"
#include "Platform/Formats/KeyedArchiveClasses.h"
#include "Platform/Formats/KeyedArchiveNumbers.h"
#include "Platform/Formats/PropertyList.h"

namespace zorvane::platform {
namespace {

// The most parts of a value. A shared child counts each time, or a small file could stand for a huge value.
constexpr std::size_t kMaxParts = 1'000'000;
// This many bytes of a text count as one part more.
constexpr std::size_t kTextBytesPerPart = 32;

constexpr std::string_view kPlainClasses[] = {
    "NSArray",       "NSMutableArray", "NSDictionary",    "NSMutableDictionary",
    "NSDate",        "NSString",       "NSMutableString", "NSData",
    "NSMutableData", "NSNull",         "NSDecimalNumber", "NSDecimalNumberPlaceholder"};

class Reader {
 public:
  Reader(const Array& objects, std::string_view rootClass, std::span<const std::string_view> classes)
      : objects_(objects), rootClass_(rootClass), classes_(classes), entries_(objects.size()) {}

  // Null when the reference is no UID or out of range.
  const Value* target(const Value* reference, std::size_t& index) const {
    if (!reference) return nullptr;
    const auto uid = reference->asObject<PropertyListUID>();
    if (!uid || uid->index() >= objects_.size()) return nullptr;
    index = uid->index();
    return &objects_[index];
  }

  // The name of the entry's class; if it is unknown, the first known one of its hints; empty if there is none.
  std::string_view classOf(const Dictionary& entry) const {
    std::size_t index = 0;
    const Value* stated = target(entry.find("$class"), index);
    const Dictionary* description = stated ? stated->asDictionary() : nullptr;
    if (!description) return {};
    const Value* name = description->find("$classname");
    if (name && name->isString() && isKnown(*name->asString())) return *name->asString();
    const Value* hints = description->find("$classhints");
    if (!hints || !hints->isArray()) return {};
    for (const Value& hint : *hints->asArray()) {
      if (hint.isString() && isKnown(*hint.asString())) return *hint.asString();
    }
    return {};
  }

  // Nil for anything malformed. Each entry is read once and shared by all references to it.
  Value read(const Value* reference, int depth) { return readEntry(reference, depth).value; }

 private:
  struct Entry {
    enum class State : std::uint8_t { Unread, Reading, Read };
    State state = State::Unread;
    Value value;
    std::size_t parts = 1;
  };

  bool isPlain(std::string_view name) const {
    return std::find(std::begin(kPlainClasses), std::end(kPlainClasses), name) != std::end(kPlainClasses);
  }
  bool isOwn(std::string_view name) const {
    return name == rootClass_ || std::find(classes_.begin(), classes_.end(), name) != classes_.end();
  }
  bool isKnown(std::string_view name) const { return isPlain(name) || isOwn(name); }

  const Entry& readEntry(const Value* reference, int depth) {
    static const Entry kNothing;
    std::size_t index = 0;
    const Value* content = target(reference, index);
    if (!content || index == 0) return kNothing;
    Entry& entry = entries_[index];
    if (entry.state == Entry::State::Unread) {
      if (depth > archive::kMaxDepth) return kNothing;
      entry.state = Entry::State::Reading;
      entry.value = readContent(*content, depth, entry.parts);
      if (entry.parts > kMaxParts) {
        entry.value = Value();
        entry.parts = 1;
      }
      entry.state = Entry::State::Read;
    }
    // An entry that is still being read contains itself.
    return entry.state == Entry::State::Read ? entry : kNothing;
  }

  // Adds the entry's parts to those of the value around it. Nil from the point where they are too many.
  Value readPart(const Value* reference, int depth, std::size_t& parts) {
    if (parts > kMaxParts) return {};
    const Entry& entry = readEntry(reference, depth);
    parts += entry.parts;
    return parts > kMaxParts ? Value() : entry.value;
  }

  Value readContent(const Value& content, int depth, std::size_t& parts) {
    switch (content.kind()) {
      case Value::Kind::Bool:
      case Value::Kind::Integer:
      case Value::Kind::Double:
      case Value::Kind::Data:
      case Value::Kind::Date:
        return content;
      case Value::Kind::String:
        parts += content.asString()->size() / kTextBytesPerPart;
        return content;
      case Value::Kind::Dictionary:
        break;
      case Value::Kind::Object:
        return isLargeInteger(content) ? content : Value();
      default:
        return {};
    }
    const Dictionary& entry = *content.asDictionary();
    const std::string_view name = classOf(entry);
    if (isOwn(name)) return readObject(entry, name, depth, parts);
    if (name == "NSArray" || name == "NSMutableArray") return readArray(entry, depth, parts);
    if (name == "NSDictionary" || name == "NSMutableDictionary") return readDictionary(entry, depth, parts);
    if (name == "NSNull") return null;
    if (name == "NSDecimalNumberPlaceholder" || name == "NSDecimalNumber") return archive::decimalNumber(entry);
    if (name == "NSDate") {
      const Value time = entry.objectForKey("NS.time");
      if (time.isNumber()) return Date{time.doubleValue() + kPropertyListEpoch};
    } else if (name == "NSString" || name == "NSMutableString") {
      const Value* text = entry.find("NS.string");
      if (text && text->isString()) return readContent(*text, depth, parts);
    } else if (name == "NSData" || name == "NSMutableData") {
      if (Value data = entry.objectForKey("NS.data"); data.asData()) return data;
    }
    return {};
  }

  Value readArray(const Dictionary& entry, int depth, std::size_t& parts) {
    const Value* references = entry.find("NS.objects");
    if (!references || !references->isArray()) return {};
    Array array;
    for (const Value& reference : *references->asArray()) {
      Value element = readPart(&reference, depth + 1, parts);
      if (!element.isNil()) array.push_back(std::move(element));
    }
    return array;
  }

  Value readDictionary(const Dictionary& entry, int depth, std::size_t& parts) {
    const Value* keys = entry.find("NS.keys");
    const Value* references = entry.find("NS.objects");
    if (!keys || !references || !keys->isArray() || !references->isArray()) return {};
    if (keys->asArray()->size() != references->asArray()->size()) return {};
    Dictionary dictionary;
    for (std::size_t i = 0; i < keys->asArray()->size(); ++i) {
      const Value key = readPart(&(*keys->asArray())[i], depth + 1, parts);
      Value element = readPart(&(*references->asArray())[i], depth + 1, parts);
      if (key.isString()) dictionary.setObjectNilHandledForKey(std::move(element), *key.asString());
    }
    return dictionary;
  }

  Value readObject(const Dictionary& entry, std::string_view name, int depth, std::size_t& parts) {
    const auto object = std::make_shared<ArchivedObject>(std::string(name));
    for (const auto& [key, value] : entry) {
      if (key == "$class") continue;
      // An encoded key that begins with "$" has it doubled.
      const std::string_view ownKey = key.view().substr(key.view().starts_with("$$") ? 1 : 0);
      if (value.asObject()) {
        object->encodeObject(ownKey, readPart(&value, depth + 1, parts));
      } else if (value.isNumber()) {
        object->encodeBool(ownKey, value.boolValue());
      }
    }
    return object;
  }

  const Array& objects_;
  std::string_view rootClass_;
  std::span<const std::string_view> classes_;
  std::vector<Entry> entries_;
};

Error malformed(std::string_view what) {
  return Error{"no keyed archive: " + std::string(what), 0};
}

}  // namespace

Value ArchivedObject::decodeObject(std::string_view key) const {
  for (const Field& field : fields_) {
    if (field.key == key) return field.inPlace ? Value() : field.value;
  }
  return {};
}

bool ArchivedObject::decodeBool(std::string_view key) const {
  for (const Field& field : fields_) {
    if (field.key == key) return field.inPlace && field.value.boolValue();
  }
  return false;
}

Result<std::shared_ptr<const ArchivedObject>> unarchiveRootObject(std::string_view bytes, std::string_view rootClass,
                                                                  std::span<const std::string_view> classes) {
  const auto parsed = parsePropertyList(bytes);
  if (!parsed) return parsed.error();
  const Dictionary* file = parsed.value().asDictionary();
  if (!file) return malformed("no dictionary stands at the root");
  const Value version = file->objectForKey("$version");
  if (!version.asInteger() || *version.asInteger() != archive::kVersion) return malformed("$version is not 100000");
  const Value archiver = file->objectForKey("$archiver");
  if (!archiver.isString() || *archiver.asString() != archive::kArchiver) return malformed("$archiver is unknown");
  const Value top = file->objectForKey("$top");
  if (!top.isDictionary()) return malformed("$top is missing");
  const Value objects = file->objectForKey("$objects");
  if (!objects.isArray()) return malformed("$objects is missing");

  Reader reader(*objects.asArray(), rootClass, classes);
  std::size_t index = 0;
  const Value* root = reader.target(top.asDictionary()->find("root"), index);
  if (!root || index == 0) return malformed("the root is missing or out of range");
  if (!root->isDictionary() || reader.classOf(*root->asDictionary()) != rootClass) {
    return malformed("the root is no " + std::string(rootClass));
  }
  auto object = reader.read(top.asDictionary()->find("root"), 0).asObject<ArchivedObject>();
  if (!object) return malformed("the root holds too many parts");
  return object;
}

}  // namespace zorvane::platform
