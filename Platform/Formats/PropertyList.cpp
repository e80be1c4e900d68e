#include "Platform/Formats/PropertyList.h"

#include "Platform/Formats/BinaryEncoder.h"
#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Formats/XMLPropertyList.h"
#include "Platform/Text/NumberText.h"

namespace zorvane::platform {
namespace {

// The smallest of 1, 2, 4 and 8 bytes that hold the number.
std::size_t sizeOfNumber(std::uint64_t number) {
  return number <= 0xFF ? 1 : number <= 0xFFFF ? 2 : number <= 0xFFFFFFFF ? 4 : 8;
}

// Appends the encoder's objects with references of referenceSize bytes in place of four. Returns where each begins.
std::vector<std::uint64_t> appendObjects(const BinaryEncoder& encoder, std::size_t referenceSize, std::string& out) {
  constexpr std::size_t kEncodedReferenceSize = 4;
  const std::string_view bytes = encoder.bytes();
  const std::size_t first = encoder.offsets().front();
  std::vector<std::uint64_t> offsets;
  offsets.reserve(encoder.offsets().size());
  for (std::size_t i = 0; i < encoder.offsets().size(); ++i) {
    const std::size_t start = encoder.offsets()[i] - first;
    const std::size_t end = i + 1 < encoder.offsets().size() ? encoder.offsets()[i + 1] - first : bytes.size();
    std::string_view object = bytes.substr(start, end - start);
    offsets.push_back(out.size());
    const auto marker = static_cast<unsigned char>(object[0]);
    if (marker < 0xA0) {
      out += object;
      continue;
    }
    const std::size_t head = (marker & 15) < 15 ? 1 : 2 + (std::size_t{1} << (object[1] & 3));
    out += object.substr(0, head);
    for (object.remove_prefix(head); !object.empty(); object.remove_prefix(kEncodedReferenceSize)) {
      out += object.substr(kEncodedReferenceSize - referenceSize, referenceSize);
    }
  }
  return offsets;
}

}  // namespace

std::string PropertyListUID::description() const {
  return "UID " + textOfInteger(index_);
}

Value PropertyListUID::plainValue() const {
  return Dictionary{{"CF$UID", index_}};
}

bool PropertyListUID::isEqual(const Object& other) const {
  const auto* uid = other.as<PropertyListUID>();
  return uid && uid->index_ == index_;
}

std::string LargeInteger::description() const {
  return textOfInteger(static_cast<std::int64_t>(number_ / 10)) + static_cast<char>('0' + number_ % 10);
}

bool LargeInteger::isEqual(const Object& other) const {
  const auto* integer = other.as<LargeInteger>();
  return integer && integer->number_ == number_;
}

Value valueOfUnsigned(std::uint64_t number) {
  if (number >> 63 == 0) return number;
  return std::make_shared<const LargeInteger>(number);
}

bool isLargeInteger(const Value& value) {
  return value.asObject<LargeInteger>() != nullptr;
}

Result<Value> parsePropertyList(std::string_view bytes) {
  if (!bytes.starts_with("bplist")) return parseXMLPropertyList(bytes);
  const auto objects = BinaryObjects::open(bytes, nullptr);
  if (!objects) return objects.error();
  DecodingAllowance allowance;
  return decodeObject(objects.value(), objects.value().top, 0, allowance);
}

std::string binaryPropertyList(const Value& root) {
  std::string file = "bplist00";
  BinaryObjects none;
  BinaryEncoder encoder(none);
  const std::uint32_t top = encoder.encode(root, 0);
  const std::size_t count = encoder.offsets().size();
  // The size must hold the count, though the largest index is one less.
  const std::size_t referenceSize = sizeOfNumber(count);
  file.reserve(file.size() + encoder.bytes().size() + count * 4 + 32);
  const std::vector<std::uint64_t> offsets = appendObjects(encoder, referenceSize, file);
  const std::size_t tableStart = file.size();
  const std::size_t offsetSize = sizeOfNumber(tableStart);
  for (const std::uint64_t offset : offsets) appendBigEndian(offset, offsetSize, file);
  appendTrailer(offsetSize, referenceSize, count, top, tableStart, file);
  return file;
}

}  // namespace zorvane::platform
