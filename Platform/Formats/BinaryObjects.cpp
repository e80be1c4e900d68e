#include "Platform/Formats/BinaryObjects.h"

#include <algorithm>
#include <bit>

#include "Platform/Text/NumberText.h"
#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

// Chunks are joined up to this size: appending neither copies much nor leaves many chunks.
constexpr std::size_t kJoinedSize = std::size_t{256} << 10;
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

}  // namespace

void ChunkedBytes::append(std::string_view bytes, std::shared_ptr<const std::string> owner) {
  if (bytes.empty()) return;
  chunks_.push_back({size_, bytes, std::move(owner)});
  size_ += bytes.size();
}

void ChunkedBytes::append(std::string_view bytes) {
  std::size_t joined = bytes.size();
  auto first = chunks_.end();
  while (first != chunks_.begin()) {
    const std::size_t size = std::prev(first)->bytes.size();
    if (size > 2 * joined || size + joined > kJoinedSize) break;
    joined += size;
    --first;
  }
  auto owner = std::make_shared<std::string>();
  owner->reserve(joined);
  for (auto chunk = first; chunk != chunks_.end(); ++chunk) *owner += chunk->bytes;
  *owner += bytes;
  chunks_.erase(first, chunks_.end());
  size_ -= joined - bytes.size();
  const std::string_view view = *owner;
  append(view, std::move(owner));
}

std::string_view ChunkedBytes::from(std::size_t position) const {
  if (position >= size_) return {};
  const Chunk* chunk = chunks_.data();
  if (position >= chunk->bytes.size()) {
    const auto next = std::upper_bound(chunks_.begin(), chunks_.end(), position,
                                       [](std::size_t wanted, const Chunk& other) { return wanted < other.start; });
    chunk = &*std::prev(next);
  }
  const std::size_t skipped = position - chunk->start;
  return {chunk->bytes.data() + skipped, chunk->bytes.size() - skipped};
}

std::uint64_t bigEndian(const char* bytes, std::size_t size) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])); };
  // The usual sizes, in a form that compilers make one instruction.
  if (size == 2) return byte(0) << 8 | byte(1);
  if (size == 4) return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < size; ++i) number = number << 8 | byte(i);
  return number;
}

Result<BinaryObjects> BinaryObjects::open(std::string_view file, const std::shared_ptr<const std::string>& owner) {
  if (!file.starts_with("bplist0") || file.size() < kHeaderSize + 1 + kTrailerSize) {
    return Error{"no binary property list: the header or the trailer is missing", 0};
  }
  const std::size_t trailerStart = file.size() - kTrailerSize;
  const std::string_view trailer = file.substr(trailerStart);
  const auto malformed = [&](std::string_view what, std::size_t at) {
    return Error{"no binary property list: " + textAtByte(what, trailerStart + at), 0};
  };
  BinaryObjects objects;
  objects.offsetSize = bigEndianSize(trailer.data() + 6, 1);
  objects.referenceSize = bigEndianSize(trailer.data() + 7, 1);
  objects.count = bigEndianSize(trailer.data() + 8, 8);
  objects.top = bigEndianSize(trailer.data() + 16, 8);
  const std::size_t tableStart = bigEndianSize(trailer.data() + 24, 8);
  if (objects.offsetSize < 1 || objects.offsetSize > 8) return malformed("an unsound offset size", 6);
  if (objects.referenceSize < 1 || objects.referenceSize > 8) return malformed("an unsound reference size", 7);
  if (objects.top >= objects.count) return malformed("a top object out of range", 16);
  if (tableStart <= kHeaderSize || tableStart >= trailerStart) return malformed("an offset table out of range", 24);
  const std::size_t tableSize = trailerStart - tableStart;
  if (tableSize % objects.offsetSize != 0 || tableSize / objects.offsetSize != objects.count) {
    return malformed("an offset table that does not fit the number of objects", 8);
  }
  objects.bytes.append(file.substr(0, tableStart), owner);
  objects.offsets.append(file.substr(tableStart, tableSize), owner);
  return objects;
}

bool BinaryObjects::read(std::size_t index, BinaryObject& object) const {
  if (index < firstIndex || index >= count) return false;
  const std::string_view offset = offsets.from((index - firstIndex) * offsetSize);
  if (offset.size() < offsetSize) return false;
  object.position = bigEndianSize(offset.data(), offsetSize);
  const std::string_view here = bytes.from(object.position);
  if (object.position < kHeaderSize || here.empty()) return false;

  const auto marker = static_cast<unsigned char>(here[0]);
  const unsigned low = marker & 15U;
  std::size_t start = 1;
  std::size_t unit = 1;
  object.count = low;
  switch (marker >> 4) {
    case 0x0:
      if (marker != 0x00 && marker != 0x08 && marker != 0x09) return false;
      object.kind = marker == 0     ? BinaryObject::Kind::Null
                    : marker == 0x8 ? BinaryObject::Kind::False
                                    : BinaryObject::Kind::True;
      object.count = 0;
      break;
    case 0x1:
      if (low > 4) return false;
      object.kind = BinaryObject::Kind::Integer;
      object.count = std::size_t{1} << low;
      break;
    case 0x2:
      if (low != 2 && low != 3) return false;
      object.kind = BinaryObject::Kind::Real;
      object.count = std::size_t{1} << low;
      break;
    case 0x3:
      if (low != 3) return false;
      object.kind = BinaryObject::Kind::Date;
      object.count = 8;
      break;
    case 0x8:
      object.kind = BinaryObject::Kind::UID;
      object.count = low + 1;
      break;
    case 0x4:
    case 0x5:
    case 0x6:
    case 0xA:
    case 0xD:
      object.kind = marker < 0x50   ? BinaryObject::Kind::Data
                    : marker < 0x60 ? BinaryObject::Kind::ASCII
                    : marker < 0x70 ? BinaryObject::Kind::UTF16
                    : marker < 0xB0 ? BinaryObject::Kind::List
                                    : BinaryObject::Kind::Dictionary;
      unit = object.kind == BinaryObject::Kind::UTF16        ? 2
             : object.kind == BinaryObject::Kind::List       ? referenceSize
             : object.kind == BinaryObject::Kind::Dictionary ? 2 * referenceSize
                                                             : 1;
      if (low == 15) {
        if (here.size() < 2 || (here[1] & 0xFC) != 0x10) return false;
        const std::size_t lengthSize = std::size_t{1} << (here[1] & 3);
        if (here.size() < 2 + lengthSize) return false;
        object.count = bigEndianSize(here.data() + 2, lengthSize);
        start = 2 + lengthSize;
      }
      break;
    default:
      return false;
  }
  if (object.count > (here.size() - start) / unit) return false;
  object.content = {here.data() + start, object.count * unit};
  object.size = start + object.content.size();
  return object.kind != BinaryObject::Kind::UID || bigEndian(object.content) <= 0xFFFFFFFF;
}

std::size_t BinaryObjects::reference(const BinaryObject& container, std::size_t element) const {
  return bigEndianSize(container.content.data() + element * referenceSize, referenceSize);
}

Value integerOfObject(const BinaryObject& object) {
  const std::uint64_t number = bigEndian(object.content);
  // Only eight-byte integers are signed.
  return object.count == 8 ? Value(static_cast<std::int64_t>(number)) : valueOfUnsigned(number);
}

double realOfObject(const BinaryObject& object) {
  const std::uint64_t bits = bigEndian(object.content);
  return object.count == 4 ? static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits)))
                           : std::bit_cast<double>(bits);
}

Date dateOfObject(const BinaryObject& object) {
  return Date{realOfObject(object) + kPropertyListEpoch};
}

std::uint32_t uidOfObject(const BinaryObject& object) {
  return static_cast<std::uint32_t>(bigEndian(object.content));
}

std::string_view textOfObject(const BinaryObject& object, std::string& storage) {
  if (object.kind == BinaryObject::Kind::ASCII) {
    if (isASCII(object.content)) return object.content;
    storage = validUtf8(std::string(object.content));
    return storage;
  }
  storage.clear();
  const auto unit = [&](std::size_t i) {
    return static_cast<std::uint32_t>(bigEndian(object.content.data() + 2 * i, 2));
  };
  appendUtf16AsUtf8(object.count, unit, storage);
  return storage;
}

}  // namespace zorvane::platform
