#include <algorithm>

#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

// The size of the largest number, an integer of 16 bytes.
constexpr std::size_t kNumberSize = 16;
constexpr int kUndecodable = kMaxPropertyListDepth + 1;

// A character outside ASCII makes every character two bytes.
std::size_t encodedSize(std::string_view text) {
  return isASCII(text) ? text.size() : 2 * text.size();
}

}  // namespace

bool DecodingAllowance::take(std::size_t valueCount, std::size_t byteCount) {
  if (valueCount > values || byteCount > textBytes) return false;
  values -= valueCount;
  textBytes -= byteCount;
  return true;
}

bool DecodingAllowance::takeEncoded(const Value& value, int depth) {
  switch (value.kind()) {
    case Value::Kind::String:
      return take(0, encodedSize(*value.asString()));
    case Value::Kind::URL:
      return take(0, encodedSize(value.asURL()->absoluteString));
    case Value::Kind::Data:
      return take(0, value.asData()->bytes.size());
    case Value::Kind::Object:
      return takeEncoded(plainValueOf(*value.asObject()), depth);
    case Value::Kind::Array:
    case Value::Kind::Dictionary:
      break;
    default:
      return take(0, kNumberSize);
  }
  const Array* array = value.asArray();
  const Dictionary* dictionary = value.asDictionary();
  if (depth >= kMaxPropertyListDepth) return true;
  const std::size_t count = array ? array->size() : dictionary->size();
  if (!take(count, 0)) return false;
  for (std::size_t i = 0; i < count; ++i) {
    if (dictionary && !take(0, encodedSize(dictionary->begin()[static_cast<std::ptrdiff_t>(i)].key))) return false;
    const Value& element = array ? (*array)[i] : dictionary->begin()[static_cast<std::ptrdiff_t>(i)].value;
    if (!takeEncoded(element, depth + 1)) return false;
  }
  return true;
}

DecodableObjects::Cost DecodableObjects::costOf(std::size_t index, int depth) {
  const Cost undecodable{0, 0, kUndecodable};
  if (index >= costs_.size()) return undecodable;
  if (costs_[index].height != 0) return costs_[index];
  BinaryObject object;
  if (!objects_.read(index, object)) return undecodable;
  // Not remembered: elsewhere it may be less deep.
  if (object.isContainer() && depth > kMaxPropertyListDepth) return undecodable;
  costs_[index] = undecodable;  // while its elements are looked at: it may contain itself

  constexpr DecodingAllowance kFull;
  DecodingAllowance rest;
  int height = 0;
  if (!object.isContainer()) {
    if (!rest.take(0, object.content.size())) return undecodable;
  } else {
    if (!rest.take(object.count, 0)) return undecodable;
    const bool isDictionary = object.kind == BinaryObject::Kind::Dictionary;
    for (std::size_t i = 0; i < object.count; ++i) {
      BinaryObject key;
      if (isDictionary &&
          (!objects_.read(objects_.reference(object, i), key) || !key.isText() || !rest.take(0, key.content.size()))) {
        return undecodable;
      }
      const Cost element = costOf(objects_.reference(object, isDictionary ? object.count + i : i), depth + 1);
      if (element.height >= kMaxPropertyListDepth || !rest.take(element.values, element.textBytes)) return undecodable;
      height = std::max(height, element.height);
    }
  }
  return costs_[index] = {static_cast<std::uint32_t>(kFull.values - rest.values),
                          static_cast<std::uint32_t>(kFull.textBytes - rest.textBytes), height + 1};
}

}  // namespace zorvane::platform
