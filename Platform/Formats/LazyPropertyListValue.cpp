#include "Platform/Formats/JSON.h"
#include "Platform/Formats/LazyPropertyListSource.h"
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

LazyPropertyListValue::LazyPropertyListValue(Value value) : value_(std::move(value)) {}

LazyPropertyListValue::LazyPropertyListValue(std::shared_ptr<const LazyPropertyListSource> source, std::size_t object)
    : source_(std::move(source)), object_(object) {}

Value LazyPropertyListValue::decodeAt(std::size_t object, int depth) const {
  DecodingAllowance allowance = source_->allowance();
  auto decoded = decodeObject(source_->objects, object, depth, allowance);
  source_->noteUse(allowance);
  return decoded ? std::move(decoded).value() : Value();
}

Value LazyPropertyListValue::decode() const {
  return source_ ? decodeAt(object_, kEntryDepth) : value_;
}

Value LazyPropertyListValue::decodeKey(std::string_view key) const {
  if (!source_) {
    const Dictionary* dictionary = value_.asDictionary();
    return dictionary ? dictionary->objectForKey(key) : Value();
  }
  std::size_t element = 0;
  return findElement(source_->objects, object_, key, element) ? decodeAt(element, kElementDepth) : Value();
}

std::size_t LazyPropertyListValue::countOfKey(std::string_view key) const {
  if (!source_) {
    const Value value = key.empty() ? value_ : decodeKey(key);
    return value.isArray() ? value.asArray()->size() : 0;
  }
  std::size_t element = object_;
  BinaryObject array;
  if (!key.empty() && !findElement(source_->objects, object_, key, element)) return 0;
  if (!source_->objects.read(element, array)) return 0;
  return array.kind == BinaryObject::Kind::List ? array.count : 0;
}

bool LazyPropertyListValue::isArray() const {
  if (!source_) return value_.isArray();
  BinaryObject object;
  return source_->objects.read(object_, object) && object.kind == BinaryObject::Kind::List;
}

bool LazyPropertyListValue::isDictionary() const {
  if (!source_) return value_.isDictionary();
  BinaryObject object;
  return source_->objects.read(object_, object) && object.kind == BinaryObject::Kind::Dictionary;
}

void LazyPropertyListValue::appendJSONOfKey(std::string_view key, std::string& out) const {
  if (!source_) return appendJSON(key.empty() ? value_ : decodeKey(key), out);
  std::size_t element = object_;
  if (!key.empty() && !findElement(source_->objects, object_, key, element)) {
    out += "null";
    return;
  }
  DecodingAllowance allowance = source_->allowance();
  const int depth = key.empty() ? kEntryDepth : kElementDepth;
  if (!appendJSONOfObject(source_->objects, element, depth, allowance, out)) out += "null";
  source_->noteUse(allowance);
}

}  // namespace zorvane::platform
