#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Formats/PropertyListDictionaryFile.h"

namespace zorvane::platform {
namespace {

// The number of containers around an entry's value, and around a value under one of its keys.
constexpr int kEntryDepth = 1;
constexpr int kElementDepth = 2;

// Finds the object under the key, if the object at the index is a dictionary.
bool findElement(const BinaryObjects& objects, std::size_t index, std::string_view key, std::size_t& element) {
  BinaryObject dictionary;
  if (!objects.read(index, dictionary) || dictionary.kind != BinaryObject::Kind::Dictionary) return false;
  std::string storage;
  for (std::size_t i = 0; i < dictionary.count; ++i) {
    BinaryObject text;
    if (!objects.read(objects.reference(dictionary, i), text) || !text.isText()) continue;
    // A UTF-16 unit or an ASCII byte becomes one to three bytes of UTF-8: most keys differ by length alone.
    if (text.count > key.size() || key.size() / 3 > text.count) continue;
    if (textOfObject(text, storage) != key) continue;
    element = objects.reference(dictionary, dictionary.count + i);
    return true;
  }
  return false;
}

}  // namespace

LazyPropertyListValue::LazyPropertyListValue(std::shared_ptr<const BinaryObjects> source, std::size_t object,
                                             bool isDecodable)
    : source_(std::move(source)), object_(object), isDecodable_(isDecodable) {}

Value LazyPropertyListValue::decodeAt(std::size_t object, int depth) const {
  if (!isDecodable_) return {};
  DecodingAllowance allowance;
  auto decoded = decodeObject(*source_, object, depth, allowance);
  return decoded ? std::move(decoded).value() : Value();
}

Value LazyPropertyListValue::decode() const {
  return decodeAt(object_, kEntryDepth);
}

Value LazyPropertyListValue::decodeKey(std::string_view key) const {
  std::size_t element = 0;
  return findElement(*source_, object_, key, element) ? decodeAt(element, kElementDepth) : Value();
}

std::size_t LazyPropertyListValue::countOfKey(std::string_view key) const {
  std::size_t element = object_;
  BinaryObject array;
  if (!key.empty() && !findElement(*source_, object_, key, element)) return 0;
  if (!source_->read(element, array)) return 0;
  return array.kind == BinaryObject::Kind::List ? array.count : 0;
}

bool LazyPropertyListValue::isArray() const {
  BinaryObject object;
  return source_->read(object_, object) && object.kind == BinaryObject::Kind::List;
}

bool LazyPropertyListValue::isDictionary() const {
  BinaryObject object;
  return source_->read(object_, object) && object.kind == BinaryObject::Kind::Dictionary;
}

void LazyPropertyListValue::appendJSONOfKey(std::string_view key, std::string& out) const {
  std::size_t element = object_;
  DecodingAllowance allowance;
  const int depth = key.empty() ? kEntryDepth : kElementDepth;
  if (!isDecodable_ || (!key.empty() && !findElement(*source_, object_, key, element)) ||
      !appendJSONOfObject(*source_, element, depth, allowance, out)) {
    out += "null";
  }
}

}  // namespace zorvane::platform
