// Reads XML and binary property lists, writes binary ones.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// The most containers inside one another. A reader refuses deeper files; a writer puts "" in place of what is deeper.
inline constexpr int kMaxPropertyListDepth = 128;

// A UID, by which keyed archives refer to their entries, as a value.
class PropertyListUID final : public ObjectOf<PropertyListUID> {
 public:
  explicit PropertyListUID(std::uint32_t index) : index_(index) {}
  std::uint32_t index() const { return index_; }
  std::string description() const override;
  // {"CF$UID": index}, as XML writes it.
  Value plainValue() const override;
  bool isEqual(const Object& other) const override;

 private:
  std::uint32_t index_;
};

// An integer from 2^63 to 2^64-1, which Value has no kind for.
class LargeInteger final : public ObjectOf<LargeInteger> {
 public:
  explicit LargeInteger(std::uint64_t number) : number_(number) {}
  std::uint64_t number() const { return number_; }
  // Decimal digits, also in JSON.
  std::string description() const override;
  // The nearest double.
  Value plainValue() const override { return number_; }
  bool isEqual(const Object& other) const override;

 private:
  std::uint64_t number_;
};
// An integer, or a LargeInteger.
Value valueOfUnsigned(std::uint64_t number);
bool isLargeInteger(const Value& value);

// Reads either encoding, detected by content. Depth, sizes and offsets are checked; a file whose shared objects make a
// huge value is refused. Strings come out as valid UTF-8, integers above 2^63-1 as a LargeInteger.
Result<Value> parsePropertyList(std::string_view bytes);

// The binary encoding. What a property list cannot hold is replaced: the null marker by "", a URL by its text, an
// object by its plain value (a PropertyListUID is written as a UID, a LargeInteger as an integer), anything too deep by
// "". Nil is left out of an array. Most equal scalars are written once.
std::string binaryPropertyList(const Value& root);

}  // namespace zorvane::platform
