// Property lists: XML and binary are read, binary is written.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// The most containers inside one another. A reader refuses deeper files; a writer puts "" in place of what is deeper.
inline constexpr int kMaxPropertyListDepth = 128;

// The UID of keyed archives, as it stands in a value.
class PropertyListUID final : public Object {
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

// Either encoding, decided by content. Depth (128 levels), sizes and offsets are checked; shared objects that would
// blow up when copied are refused. Strings come out as valid UTF-8.
Result<Value> parsePropertyList(std::string_view bytes);

// The binary encoding. What a property list cannot hold costs only itself: the null marker becomes "", a URL its text,
// an object its plain value (but a PropertyListUID is a UID); nil is left out of an array. Beyond 128 levels "" stands
// in. Keys and equal texts stand once.
std::string binaryPropertyList(const Value& root);

}  // namespace zorvane::platform
