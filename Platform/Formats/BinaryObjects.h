// The objects of a binary property list where they stand in its bytes: nothing is copied, every access is checked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Formats/PropertyList.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// Seconds between 1970-01-01, where a Date begins, and 2001-01-01, where a property list's dates begin.
inline constexpr double kPropertyListEpoch = 978307200;

// Bytes at consecutive positions, held in a few immutable chunks that copies share.
class ChunkedBytes {
 public:
  struct Chunk {
    std::size_t start;
    std::string_view bytes;
    std::shared_ptr<const std::string> owner;
  };

  // The bytes must outlive this where no owner is given.
  void append(std::string_view bytes, std::shared_ptr<const std::string> owner);
  // Short chunks before it are joined with it, so that the number of chunks stays small.
  void append(std::string bytes);

  std::size_t size() const { return size_; }
  const std::vector<Chunk>& chunks() const { return chunks_; }
  // What stands from the position to the end of the chunk that holds it; empty beyond the end.
  std::string_view from(std::size_t position) const;

 private:
  std::vector<Chunk> chunks_;
  std::size_t size_ = 0;
};

enum class BinaryObjectKind : std::uint8_t {
  Null,
  False,
  True,
  Integer,
  Real,
  Date,
  Data,
  ASCII,
  UTF16,
  UID,
  List,
  Dictionary
};

struct BinaryObject {
  using Kind = BinaryObjectKind;

  Kind kind = Kind::Null;
  std::size_t position = 0;
  // Marker, length and content.
  std::size_t size = 0;
  // Bytes, UTF-16 units, elements or pairs.
  std::size_t count = 0;
  std::string_view content;

  bool isText() const { return kind == Kind::ASCII || kind == Kind::UTF16; }
  bool isContainer() const { return kind >= Kind::List; }
};

// The value of 1 to 16 big-endian bytes, of which the last 8 count.
std::uint64_t bigEndian(std::string_view bytes);

struct BinaryObjects {
  ChunkedBytes bytes;
  // The offset table from the entry of firstIndex on.
  ChunkedBytes offsets;
  std::size_t offsetSize = 8;
  std::size_t referenceSize = 4;
  std::size_t firstIndex = 0;
  // All objects, those before firstIndex included.
  std::size_t count = 0;
  std::size_t top = 0;

  // Checks the header, the trailer and the place of the offset table. The bytes must outlive the result where no owner
  // is given.
  static Result<BinaryObjects> open(std::string_view file, const std::shared_ptr<const std::string>& owner);

  // Nothing when the index or the object's bytes are unsound.
  bool read(std::size_t index, BinaryObject& object) const;
  // The index of an element; of a dictionary's keys, then (from its count on) its values. Not checked to be in range.
  std::size_t reference(const BinaryObject& container, std::size_t element) const;
};

// What a decoded value may cost before it is refused: a small file can share objects so that its value is endless.
struct DecodingAllowance {
  std::size_t values = 4'000'000;
  std::size_t textBytes = 256'000'000;
  bool isExceeded = false;

  // False when that is more than what is left.
  bool take(std::size_t valueCount, std::size_t byteCount);
};

// Readings of objects of the kind. Text is valid UTF-8: a view into the object, or into storage where it was converted.
Value integerOfObject(const BinaryObject& object);
double realOfObject(const BinaryObject& object);
Date dateOfObject(const BinaryObject& object);
std::string_view textOfObject(const BinaryObject& object, std::string& storage);
std::uint32_t uidOfObject(const BinaryObject& object);

// Decodes an object with so many containers above it.
Result<Value> decodeObject(const BinaryObjects& objects, std::size_t index, int depth, DecodingAllowance& allowance);

// Appends jsonText of what decodeObject gives, without building the value. False, with out as it was, where that gives
// an error.
bool appendJSONOfObject(const BinaryObjects& objects, std::size_t index, int depth, DecodingAllowance& allowance,
                        std::string& out);

}  // namespace zorvane::platform
