#include "Platform/Formats/BinaryEncoder.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <stdexcept>

#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

std::size_t countUtf16Units(std::string_view text) {
  std::size_t count = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    // One for each character, at its first byte, and another one for four bytes.
    count += (byte & 0xC0) == 0x80 ? 0U : byte < 0xF0 ? 1U : 2U;
  }
  return count;
}

std::uint32_t hashOf(std::string_view encoded) {
  return static_cast<std::uint32_t>(std::hash<std::string_view>{}(encoded));
}

}  // namespace

BinaryEncoder::BinaryEncoder(BinaryObjects& objects, std::unique_ptr<ScalarTable> table)
    : objects_(objects), table_(std::move(table)) {
  if (table_) return;
  table_ = std::make_unique<ScalarTable>();
  findExisting();
}

void BinaryEncoder::findExisting() {
  constexpr std::size_t kLooked = 512;
  for (std::size_t i = objects_.firstIndex; i < std::min(objects_.count, objects_.firstIndex + kLooked); ++i) {
    BinaryObject object;
    if (!objects_.read(i, object) || object.isContainer()) continue;
    const std::string_view encoded = objects_.bytes.from(object.position).substr(0, object.size);
    const std::uint32_t hash = hashOf(encoded);
    bool isEqual = false;
    slotOf(hash, encoded, isEqual) = {hash, static_cast<std::uint32_t>(i)};
  }
}

std::uint32_t BinaryEncoder::encode(const Value& value, int depth) {
  if (!isDecodable_) return 0;
  const std::size_t start = bytes_.size();
  switch (value.kind()) {
    case Value::Kind::Nil:
    case Value::Kind::Null:
      return encodeText("");
    case Value::Kind::Bool:
      bytes_ += *value.asBool() ? '\x09' : '\x08';
      break;
    case Value::Kind::Integer:
      appendInteger(static_cast<std::uint64_t>(*value.asInteger()), false);
      break;
    case Value::Kind::Double:
      appendReal(0x23, *value.asDouble());
      break;
    case Value::Kind::String:
      return encodeText(*value.asString());
    case Value::Kind::Data: {
      const auto& data = value.asData()->bytes;
      appendMarker(0x40, data.size(), bytes_);
      bytes_.append(data.begin(), data.end());
      break;
    }
    case Value::Kind::Date:
      appendReal(0x33, value.asDate()->secondsSince1970 - kPropertyListEpoch);
      break;
    case Value::Kind::URL:
      return encodeText(value.asURL()->absoluteString);
    case Value::Kind::Array:
    case Value::Kind::Dictionary:
      return depth < kMaxPropertyListDepth ? encodeContainer(value, depth) : encodeText("");
    case Value::Kind::Object:
      if (const auto uid = value.asObject<PropertyListUID>()) {
        appendUID(uid->index());
      } else if (const auto large = value.asObject<LargeInteger>()) {
        appendInteger(large->number(), true);
      } else {
        return encode(plainValueOf(*value.asObject()), depth);
      }
      break;
  }
  return finishScalar(start);
}

std::uint32_t BinaryEncoder::encodeContainer(const Value& value, int depth) {
  const std::size_t firstReference = references_.size();
  const Array* array = value.asArray();
  const Dictionary* dictionary = value.asDictionary();
  if (dictionary) addKeys(*dictionary);
  const std::size_t firstElement = references_.size();
  std::size_t next = firstElement;
  references_.resize(firstElement + (array ? array->size() : dictionary ? dictionary->size() : 0));
  if (array) {
    for (const Value& element : *array) {
      if (!element.isNil()) references_[next++] = encode(element, depth + 1);
    }
    references_.resize(next);
  } else if (dictionary) {
    for (const auto& [key, element] : *dictionary) references_[next++] = encode(element, depth + 1);
  }
  isDecodable_ = allowance_.take(next - firstElement, 0) && isDecodable_;
  return addContainer(array ? 0xA0 : 0xD0, next - firstElement, firstReference);
}

void BinaryEncoder::addKeys(const Dictionary& dictionary) {
  const auto isSame = [](const Dictionary::Entry& entry, const Text& key) { return entry.key == key; };
  auto& sets = table_->keySets_;
  auto known = std::find_if(sets.begin(), sets.end(), [&](const ScalarTable::KeySet& set) {
    return std::equal(dictionary.begin(), dictionary.end(), set.keys.begin(), set.keys.end(), isSame);
  });
  if (known != sets.end()) {
    isDecodable_ = allowance_.take(0, known->byteCount) && isDecodable_;
  } else {
    known = sets.begin() + static_cast<std::ptrdiff_t>(table_->nextKeySet_++ % sets.size());
    *known = {};
    const std::size_t left = allowance_.textBytes;
    for (const auto& [key, element] : dictionary) {
      known->keys.push_back(key);
      known->references.push_back(encodeText(key));
    }
    known->byteCount = left - allowance_.textBytes;
  }
  references_.insert(references_.end(), known->references.begin(), known->references.end());
}

std::uint32_t BinaryEncoder::copy(const BinaryObjects& from, std::size_t index, int depth, Copies& copies) {
  if (index >= copies.size()) return ScalarTable::kNone;
  if (copies[index] != 0) return copies[index];
  BinaryObject object;
  if (!from.read(index, object)) return ScalarTable::kNone;
  // Not remembered: elsewhere it may be less deep.
  if (object.isContainer() && depth > kMaxPropertyListDepth) return ScalarTable::kNone;
  copies[index] = ScalarTable::kNone;  // while its elements are copied: it may contain itself
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
  appendBigEndian(std::span(references_).subspan(firstReference), objects_.referenceSize, bytes_);
  references_.resize(firstReference);
  return addObject(start);
}

std::uint32_t BinaryEncoder::encodeText(std::string_view text) {
  const std::size_t start = bytes_.size();
  if (isASCII(text)) {
    appendMarker(0x50, text.size(), bytes_);
    bytes_ += text;
    return finishScalar(start);
  }
  appendMarker(0x60, countUtf16Units(text), bytes_);
  for (std::size_t position = 0; position < text.size();) {
    std::uint32_t character = nextCharacter(text, position);
    if (character >= 0x10000) {
      character -= 0x10000;
      appendBigEndian(0xD800 + (character >> 10), 2, bytes_);
      character = 0xDC00 + (character & 0x3FF);
    }
    appendBigEndian(character, 2, bytes_);
  }
  return finishScalar(start);
}

void BinaryEncoder::appendInteger(std::uint64_t bits, bool isLarge) {
  // Only eight-byte integers are signed.
  const unsigned power = isLarge ? 4 : bits <= 0xFF ? 0 : bits <= 0xFFFF ? 1 : bits <= 0xFFFFFFFF ? 2 : 3;
  bytes_ += static_cast<char>(0x10 + power);
  if (isLarge) bytes_.append(8, '\0');
  appendBigEndian(bits, std::size_t{1} << std::min(power, 3U), bytes_);
}

void BinaryEncoder::appendReal(unsigned char marker, double number) {
  bytes_ += static_cast<char>(marker);
  appendBigEndian(std::bit_cast<std::uint64_t>(number), 8, bytes_);
}

void BinaryEncoder::appendUID(std::uint32_t number) {
  const std::size_t size = number <= 0xFF ? 1 : number <= 0xFFFF ? 2 : 4;
  bytes_ += static_cast<char>(static_cast<unsigned char>(0x80 + size - 1));
  appendBigEndian(number, size, bytes_);
}

std::uint32_t BinaryEncoder::finishScalar(std::size_t start) {
  const std::string_view encoded(bytes_.data() + start, bytes_.size() - start);
  isDecodable_ = allowance_.take(0, encoded.size()) && isDecodable_;
  const std::uint32_t hash = hashOf(encoded);
  bool isEqual = false;
  ScalarTable::Slot& slot = slotOf(hash, encoded, isEqual);
  if (isEqual) {
    bytes_.resize(start);
  } else {
    slot = {hash, addObject(start)};
  }
  return slot.index;
}

std::uint32_t BinaryEncoder::addObject(std::size_t start) {
  const std::size_t index = objects_.count + offsets_.size();
  const std::size_t offset = objects_.bytes.size() + start;
  if (std::max(index, offset) >= ScalarTable::kNone) throw std::length_error("too large a property list");
  offsets_.push_back(static_cast<std::uint32_t>(offset));
  return static_cast<std::uint32_t>(index);
}

ScalarTable::Slot& BinaryEncoder::slotOf(std::uint32_t hash, std::string_view encoded, bool& isEqual) {
  constexpr std::size_t kTried = 4;
  for (std::size_t i = 0; i < kTried; ++i) {
    ScalarTable::Slot& slot = table_->slots_[(hash + i) % ScalarTable::kSlots];
    if (slot.index == ScalarTable::kNone) return slot;
    isEqual = slot.hash == hash && isEqualTo(slot.index, encoded);
    if (isEqual) return slot;
  }
  return table_->slots_[hash % ScalarTable::kSlots];
}

bool BinaryEncoder::isEqualTo(std::uint32_t index, std::string_view encoded) const {
  // Encodings are prefix-free, so starts_with means equal.
  if (index >= objects_.count) {
    const std::size_t start = offsets_[index - objects_.count] - objects_.bytes.size();
    return std::string_view(bytes_).substr(start).starts_with(encoded);
  }
  const std::string_view offset = objects_.offsets.from((index - objects_.firstIndex) * objects_.offsetSize);
  return objects_.bytes.from(bigEndianSize(offset.data(), objects_.offsetSize)).starts_with(encoded);
}

void BinaryEncoder::beginEntry() {
  allowance_ = DecodingAllowance();
  isDecodable_ = true;
}

void BinaryEncoder::commit() {
  if (offsets_.empty()) return;
  std::string offsets;
  appendBigEndian(offsets_, 4, offsets);
  objects_.bytes.append(bytes_);
  objects_.offsets.append(offsets);
  objects_.count += offsets_.size();
  bytes_.clear();
  offsets_.clear();
}

void appendBigEndian(std::uint64_t number, std::size_t size, std::string& out) {
  char bytes[8];
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<char>(static_cast<unsigned char>(number >> (8 * (size - 1 - i)) & 0xFF));
  }
  out.append(bytes, size);
}

void appendBigEndian(std::span<const std::uint32_t> numbers, std::size_t size, std::string& out) {
  const std::size_t first = out.size();
  out.resize(first + numbers.size() * size);
  auto* to = reinterpret_cast<unsigned char*>(out.data() + first);
  // Two loops, because compilers make one instruction of the stores.
  if (size == 2) {
    for (const std::uint32_t number : numbers) {
      *to++ = static_cast<unsigned char>(number >> 8);
      *to++ = static_cast<unsigned char>(number);
    }
    return;
  }
  for (const std::uint32_t number : numbers) {
    *to++ = static_cast<unsigned char>(number >> 24);
    *to++ = static_cast<unsigned char>(number >> 16);
    *to++ = static_cast<unsigned char>(number >> 8);
    *to++ = static_cast<unsigned char>(number);
  }
}

void appendMarker(unsigned char marker, std::size_t count, std::string& out) {
  out += static_cast<char>(static_cast<unsigned char>(marker | std::min<std::size_t>(count, 15)));
  if (count < 15) return;
  const unsigned power = count <= 0xFF ? 0 : count <= 0xFFFF ? 1 : count <= 0xFFFFFFFF ? 2 : 3;
  out += static_cast<char>(0x10 + power);
  appendBigEndian(count, std::size_t{1} << power, out);
}

void appendTrailer(std::size_t offsetSize, std::size_t referenceSize, std::uint64_t count, std::uint64_t top,
                   std::uint64_t tableStart, std::string& out) {
  out.append(6, '\0');
  appendBigEndian(offsetSize, 1, out);
  appendBigEndian(referenceSize, 1, out);
  appendBigEndian(count, 8, out);
  appendBigEndian(top, 8, out);
  appendBigEndian(tableStart, 8, out);
}

}  // namespace zorvane::platform
