#include "Platform/Formats/BinaryEncoder.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <stdexcept>

#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

constexpr std::size_t kReferenceSize = 4;

void appendUtf16Units(std::string_view text, std::string& out) {
  for (std::size_t position = 0; position < text.size();) {
    const std::uint32_t character = nextCharacter(text, position);
    if (character < 0x10000) {
      appendBigEndian(character, 2, out);
    } else {
      appendBigEndian(0xD800 + ((character - 0x10000) >> 10), 2, out);
      appendBigEndian(0xDC00 + ((character - 0x10000) & 0x3FF), 2, out);
    }
  }
}

}  // namespace

std::uint32_t ScalarTable::hashOf(std::string_view encoded) {
  return static_cast<std::uint32_t>(std::hash<std::string_view>{}(encoded));
}

void ScalarTable::place(Slot slot) {
  const std::size_t mask = slots_.size() - 1;
  std::size_t i = slot.hash & mask;
  while (slots_[i].index != kNotFound) i = (i + 1) & mask;
  slots_[i] = slot;
}

void ScalarTable::insert(std::uint32_t hash, std::uint32_t index) {
  if ((used_ + 1) * 3 > slots_.size() * 2) {
    std::vector<Slot> old(std::max<std::size_t>(64, slots_.size() * 2));
    old.swap(slots_);
    for (const Slot& slot : old) {
      if (slot.index != kNotFound) place(slot);
    }
  }
  place({hash, index});
  ++used_;
}

std::uint32_t BinaryEncoder::encode(const Value& value, int depth) {
  switch (value.kind()) {
    case Value::Kind::Nil:
    case Value::Kind::Null:
      return encodeText("");
    case Value::Kind::Bool: {
      const std::size_t start = bytes_.size();
      bytes_ += *value.asBool() ? '\x09' : '\x08';
      return finishScalar(start);
    }
    case Value::Kind::Integer:
      return encodeInteger(static_cast<std::uint64_t>(*value.asInteger()), false);
    case Value::Kind::Double:
      return encodeReal(0x23, *value.asDouble());
    case Value::Kind::String:
      return encodeText(*value.asString());
    case Value::Kind::Data:
      return encodeData(*value.asData());
    case Value::Kind::Date:
      return encodeReal(0x33, value.asDate()->secondsSince1970 - kPropertyListEpoch);
    case Value::Kind::URL:
      return encodeText(value.asURL()->absoluteString);
    case Value::Kind::Array:
    case Value::Kind::Dictionary:
      return depth < kMaxPropertyListDepth ? encodeContainer(value, depth) : encodeText("");
    case Value::Kind::Object:
      break;
  }
  if (const auto uid = value.asObject<PropertyListUID>()) return encodeUID(uid->index());
  if (const auto large = value.asObject<LargeInteger>()) return encodeInteger(large->number(), true);
  return encode(plainValueOf(*value.asObject()), depth);
}

std::uint32_t BinaryEncoder::encodeContainer(const Value& value, int depth) {
  const std::size_t firstReference = references_.size();
  std::size_t count = 0;
  if (const Array* array = value.asArray()) {
    for (const Value& element : *array) {
      if (element.isNil()) continue;
      references_.push_back(encode(element, depth + 1));
      ++count;
    }
  } else {
    const Dictionary& dictionary = *value.asDictionary();
    count = dictionary.size();
    addKeys(dictionary);
    for (const auto& [key, element] : dictionary) references_.push_back(encode(element, depth + 1));
  }
  return addContainer(value.isArray() ? 0xA0 : 0xD0, count, firstReference);
}

void BinaryEncoder::addKeys(const Dictionary& dictionary) {
  const auto isSame = [](const Dictionary::Entry& entry, const std::string& key) { return entry.key == key; };
  for (const KeySet& known : keySets_) {
    if (std::equal(dictionary.begin(), dictionary.end(), known.keys.begin(), known.keys.end(), isSame)) {
      references_.insert(references_.end(), known.references.begin(), known.references.end());
      return;
    }
  }
  KeySet& replaced = keySets_[nextKeySet_++ % keySets_.size()];
  replaced = {};
  for (const auto& [key, element] : dictionary) {
    replaced.keys.push_back(key);
    replaced.references.push_back(encodeText(key));
  }
  references_.insert(references_.end(), replaced.references.begin(), replaced.references.end());
}

std::uint32_t BinaryEncoder::copy(const BinaryObjects& from, std::size_t index, int depth, Copies& copies) {
  if (index >= copies.size()) return ScalarTable::kNotFound;
  if (copies[index] != 0) return copies[index];
  BinaryObject object;
  if (!from.read(index, object)) return ScalarTable::kNotFound;
  // Not remembered: elsewhere it may be less deep.
  if (object.isContainer() && depth > kMaxPropertyListDepth) return ScalarTable::kNotFound;
  copies[index] = ScalarTable::kNotFound;  // while its elements are copied: it may contain itself
  std::uint32_t copied = 0;
  if (object.isContainer()) {
    const bool isDictionary = object.kind == BinaryObject::Kind::Dictionary;
    const std::size_t firstReference = references_.size();
    for (std::size_t i = 0; i < object.count * (isDictionary ? 2 : 1); ++i) {
      references_.push_back(copy(from, from.reference(object, i), depth + 1, copies));
    }
    copied = addContainer(isDictionary ? 0xD0 : 0xA0, object.count, firstReference);
  } else {
    const std::size_t start = bytes_.size();
    bytes_ += from.bytes.from(object.position).substr(0, object.size);
    copied = finishScalar(start);
  }
  return copies[index] = copied;
}

std::uint32_t BinaryEncoder::addContainer(unsigned char marker, std::size_t count, std::size_t firstReference) {
  const std::size_t start = bytes_.size();
  appendMarker(marker, count, bytes_);
  const std::size_t first = bytes_.size();
  bytes_.resize(first + (references_.size() - firstReference) * kReferenceSize);
  char* out = &bytes_[first];
  for (std::size_t i = firstReference; i < references_.size(); ++i) {
    for (int shift = 24; shift >= 0; shift -= 8) *out++ = static_cast<char>(references_[i] >> shift & 0xFF);
  }
  references_.resize(firstReference);
  return addObject(start);
}

std::uint32_t BinaryEncoder::encodeText(std::string_view text) {
  const std::size_t start = bytes_.size();
  if (isASCII(text)) {
    appendMarker(0x50, text.size(), bytes_);
    bytes_ += text;
  } else {
    std::string units;
    units.reserve(2 * text.size());
    appendUtf16Units(text, units);
    appendMarker(0x60, units.size() / 2, bytes_);
    bytes_ += units;
  }
  return finishScalar(start);
}

std::uint32_t BinaryEncoder::encodeInteger(std::uint64_t bits, bool isLarge) {
  const std::size_t start = bytes_.size();
  // Only eight-byte integers are signed.
  const unsigned power = isLarge ? 4 : bits <= 0xFF ? 0 : bits <= 0xFFFF ? 1 : bits <= 0xFFFFFFFF ? 2 : 3;
  bytes_ += static_cast<char>(0x10 + power);
  if (isLarge) bytes_.append(8, '\0');
  appendBigEndian(bits, std::size_t{1} << std::min(power, 3U), bytes_);
  return finishScalar(start);
}

std::uint32_t BinaryEncoder::encodeReal(unsigned char marker, double number) {
  const std::size_t start = bytes_.size();
  bytes_ += static_cast<char>(marker);
  appendBigEndian(std::bit_cast<std::uint64_t>(number), 8, bytes_);
  return finishScalar(start);
}

std::uint32_t BinaryEncoder::encodeData(const Data& data) {
  const std::size_t start = bytes_.size();
  appendMarker(0x40, data.bytes.size(), bytes_);
  bytes_.append(data.bytes.begin(), data.bytes.end());
  return finishScalar(start);
}

std::uint32_t BinaryEncoder::encodeUID(std::uint32_t number) {
  const std::size_t start = bytes_.size();
  const std::size_t size = number <= 0xFF ? 1 : number <= 0xFFFF ? 2 : 4;
  bytes_ += static_cast<char>(static_cast<unsigned char>(0x80 + size - 1));
  appendBigEndian(number, size, bytes_);
  return finishScalar(start);
}

std::uint32_t BinaryEncoder::finishScalar(std::size_t start) {
  const std::string_view encoded = std::string_view(bytes_).substr(start);
  const std::uint32_t hash = ScalarTable::hashOf(encoded);
  std::uint32_t index = table_.find(hash, [&](std::uint32_t other) { return isEqualTo(other, encoded); });
  if (index != ScalarTable::kNotFound) {
    bytes_.resize(start);
    return index;
  }
  index = addObject(start);
  table_.insert(hash, index);
  return index;
}

std::uint32_t BinaryEncoder::addObject(std::size_t start) {
  const std::size_t index = existing_.count + offsets_.size();
  if (index >= ScalarTable::kNotFound) throw std::length_error("too many objects in a property list");
  offsets_.push_back(existing_.bytes.size() + start);
  return static_cast<std::uint32_t>(index);
}

bool BinaryEncoder::isEqualTo(std::uint32_t index, std::string_view encoded) const {
  // Encodings are prefix-free, so starts_with means equal.
  if (index >= existing_.count) {
    const std::size_t start = offsets_[index - existing_.count] - existing_.bytes.size();
    return std::string_view(bytes_).substr(start).starts_with(encoded);
  }
  const std::string_view offset = existing_.offsets.from((index - existing_.firstIndex) * existing_.offsetSize);
  return existing_.bytes.from(bigEndian(offset.substr(0, existing_.offsetSize))).starts_with(encoded);
}

void appendBigEndian(std::uint64_t number, std::size_t size, std::string& out) {
  char bytes[8];
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<char>(static_cast<unsigned char>(number >> (8 * (size - 1 - i)) & 0xFF));
  }
  out.append(bytes, size);
}

void appendMarker(unsigned char marker, std::size_t count, std::string& out) {
  out += static_cast<char>(static_cast<unsigned char>(marker | std::min<std::size_t>(count, 15)));
  if (count < 15) return;
  const unsigned power = count <= 0xFF ? 0 : count <= 0xFFFF ? 1 : count <= 0xFFFFFFFF ? 2 : 3;
  out += static_cast<char>(0x10 + power);
  appendBigEndian(count, std::size_t{1} << power, out);
}

void appendTrailer(std::size_t offsetSize, std::size_t referenceSize, std::size_t count, std::size_t top,
                   std::size_t tableStart, std::string& out) {
  out.append(6, '\0');
  appendBigEndian(offsetSize, 1, out);
  appendBigEndian(referenceSize, 1, out);
  appendBigEndian(count, 8, out);
  appendBigEndian(top, 8, out);
  appendBigEndian(tableStart, 8, out);
}

}  // namespace zorvane::platform
