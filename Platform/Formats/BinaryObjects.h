// Reads the objects of a binary property list in place: nothing is copied, every access is checked.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Formats/PropertyList.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// Seconds from 1970-01-01, the epoch of Date, to 2001-01-01, the epoch of dates in property lists.
inline constexpr double kPropertyListEpoch = 978307200;

// A sequence of bytes in a few immutable chunks, which copies share.
class ChunkedBytes {
 public:
  struct Chunk {
    std::size_t start;
    std::string_view bytes;
    std::shared_ptr<const std::string> owner;
  };

  // Without an owner the bytes must outlive this object and its copies.
  void append(std::string_view bytes, std::shared_ptr<const std::string> owner);
  // Copies the bytes. Joins short chunks at the end with them, so that the number of chunks stays small.
  void append(std::string_view bytes);

  std::size_t size() const { return size_; }
  const std::vector<Chunk>& chunks() const { return chunks_; }
  // The bytes from the position to the end of its chunk; empty beyond the end.
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

// The number in the last 8 of 1 to 16 big-endian bytes.
std::uint64_t bigEndian(const char* bytes, std::size_t size);
inline std::uint64_t bigEndian(std::string_view bytes) {
  return bigEndian(bytes.data(), bytes.size());
}

// The same as a size. What a size of 32 bits cannot hold becomes the largest one, which is out of every range.
inline std::size_t bigEndianSize(const char* bytes, std::size_t size) {
  return static_cast<std::size_t>(
      std::min<std::uint64_t>(bigEndian(bytes, size), std::numeric_limits<std::size_t>::max()));
}

struct BinaryObjects {
  ChunkedBytes bytes;
  // The offset table, from the entry of object firstIndex on.
  ChunkedBytes offsets;
  std::size_t offsetSize = 8;
  std::size_t referenceSize = 4;
  std::size_t firstIndex = 0;
  // The number of all objects, those before firstIndex included.
  std::size_t count = 0;
  std::size_t top = 0;

  // Checks the header, the trailer and the position of the offset table. Without an owner the bytes must outlive the
  // result.
  static Result<BinaryObjects> open(std::string_view file, const std::shared_ptr<const std::string>& owner);

  // False when the index is out of range or the object's bytes are malformed.
  bool read(std::size_t index, BinaryObject& object) const;
  // The index of a container's element: of a dictionary 0 to count-1 are its keys, count to 2*count-1 its values. The
  // element must exist; the result may be out of range.
  std::size_t reference(const BinaryObject& container, std::size_t element) const;
};

// What decoding a value may still cost. Objects can be shared, so that a small file stands for a huge value.
struct DecodingAllowance {
  std::size_t values = 4'000'000;
  std::size_t textBytes = 256'000'000;

  // False when less is left.
  bool take(std::size_t valueCount, std::size_t byteCount);
  // Takes what the value's encoding will cost at most. depth is the number of containers around it.
  bool takeEncoded(const Value& value, int depth);
};

// Tells which objects decodeObject can decode with a full allowance. Looks at each object once, however often it is
// shared. The objects must outlive this one.
class DecodableObjects {
 public:
  explicit DecodableObjects(const BinaryObjects& objects) : objects_(objects), costs_(objects.count) {}

  // For an object with one container around it.
  bool contains(std::size_t index) { return costOf(index, 1).height <= kMaxPropertyListDepth; }

 private:
  struct Cost {
    std::uint32_t values = 0;
    std::uint32_t textBytes = 0;
    // The levels of the value; 0 while that is unknown.
    std::uint8_t height = 0;
    bool isText = false;
  };
  const Cost& costOf(std::size_t index, int depth);

  const BinaryObjects& objects_;
  std::vector<Cost> costs_;
};

// The object must be of that kind. Text is valid UTF-8: a view of the object, or of storage if it had to be converted.
Value integerOfObject(const BinaryObject& object);
double realOfObject(const BinaryObject& object);
Date dateOfObject(const BinaryObject& object);
std::string_view textOfObject(const BinaryObject& object, std::string& storage);
std::uint32_t uidOfObject(const BinaryObject& object);

// depth is the number of containers around the object.
Result<Value> decodeObject(const BinaryObjects& objects, std::size_t index, int depth, DecodingAllowance& allowance);

// Appends the jsonText of what decodeObject returns, without building the value. Where that is an error, returns false
// and leaves out as it was.
bool appendJSONOfObject(const BinaryObjects& objects, std::size_t index, int depth, DecodingAllowance& allowance,
                        std::string& out);

}  // namespace zorvane::platform
