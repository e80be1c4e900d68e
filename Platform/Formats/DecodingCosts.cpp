#include <algorithm>

#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

// The most bytes of a marker with its length, and of a number: an integer of 16 bytes with its marker.
constexpr std::size_t kHeaderSize = 10;
constexpr std::size_t kNumberSize = 17;
constexpr std::uint8_t kUndecodable = kMaxPropertyListDepth + 1;

// A character outside ASCII makes every character two bytes.
std::size_t encodedSize(std::string_view text) {
  return kHeaderSize + (isASCII(text) ? text.size() : 2 * text.size());
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
      return take(0, kHeaderSize + value.asData()->bytes.size());
    case Value::Kind::Object:
      return takeEncoded(plainValueOf(*value.asObject()), depth);
    case Value::Kind::Array:
    case Value::Kind::Dictionary:
      break;
    default:
      return take(0, kNumberSize);
  }
  if (depth >= kMaxPropertyListDepth) return take(0, encodedSize(""));
  if (const Array* array = value.asArray()) {
    if (!take(array->size(), 0)) return false;
    for (const Value& element : *array) {
      if (!takeEncoded(element, depth + 1)) return false;
    }
    return true;
  }
  const Dictionary& dictionary = *value.asDictionary();
  if (!take(dictionary.size(), 0)) return false;
  for (const auto& [key, element] : dictionary) {
    if (!take(0, encodedSize(key)) || !takeEncoded(element, depth + 1)) return false;
  }
  return true;
}

const DecodableObjects::Cost& DecodableObjects::costOf(std::size_t index, int depth) {
  static constexpr Cost kTooDeep{0, 0, kUndecodable, false};
  if (index >= costs_.size()) return kTooDeep;
  Cost& cost = costs_[index];
  if (cost.height != 0) return cost;
  BinaryObject object;
  const bool isSound = objects_.read(index, object);
  // Not remembered: elsewhere it may be less deep.
  if (isSound && object.isContainer() && depth > kMaxPropertyListDepth) return kTooDeep;
  cost.height = kUndecodable;  // while its elements are looked at: it may contain itself
  if (!isSound) return cost;

  constexpr DecodingAllowance kFull;
  const bool isDictionary = object.kind == BinaryObject::Kind::Dictionary;
  std::size_t values = object.isContainer() ? object.count : 0;
  std::size_t textBytes = object.isContainer() ? 0 : object.content.size();
  std::uint8_t height = 0;
  const std::size_t elements = isDictionary ? 2 * values : values;
  for (std::size_t i = 0; i < elements && values <= kFull.values && textBytes <= kFull.textBytes; ++i) {
    const std::size_t reference = objects_.reference(object, i);
    const bool isKnown = reference < costs_.size() && costs_[reference].height != 0;
    const Cost& element = isKnown ? costs_[reference] : costOf(reference, depth + 1);
    if (element.height >= kMaxPropertyListDepth || (isDictionary && i < object.count && !element.isText)) return cost;
    values += element.values;
    textBytes += element.textBytes;
    height = std::max(height, element.height);
  }
  if (values > kFull.values || textBytes > kFull.textBytes) return cost;
  return cost = {static_cast<std::uint32_t>(values), static_cast<std::uint32_t>(textBytes),
                 static_cast<std::uint8_t>(height + 1), object.isText()};
}

}  // namespace zorvane::platform
