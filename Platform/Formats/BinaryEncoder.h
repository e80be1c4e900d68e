// Values as the objects of a binary property list. Each scalar stands once, however often it is used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// The scalars of a file by their encoded bytes.
class ScalarTable {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  static std::uint32_t hashOf(std::string_view encoded);
  // The index among those of the hash for which isEqual(index) holds, or kNone.
  template <typename IsEqual>
  std::uint32_t find(std::uint32_t hash, IsEqual isEqual) const {
    if (slots_.empty()) return kNone;
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = hash & mask; slots_[i].index != kNone; i = (i + 1) & mask) {
      if (slots_[i].hash == hash && isEqual(slots_[i].index)) return slots_[i].index;
    }
    return kNone;
  }
  void insert(std::uint32_t hash, std::uint32_t index);

 private:
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t index = kNone;
  };
  void place(Slot slot);

  std::vector<Slot> slots_;
  std::size_t used_ = 0;
};

// Encodes behind the objects that stand already: in references of four bytes, each object behind those it refers to.
class BinaryEncoder {
 public:
  // Both must outlive the encoder; the table knows the scalars of the existing objects and learns the new ones.
  BinaryEncoder(const BinaryObjects& existing, ScalarTable& table) : existing_(existing), table_(table) {}

  // The index of the object, which has so many containers above it. Nil becomes "".
  std::uint32_t encode(const Value& value, int depth);
  std::uint32_t encodeText(std::string_view text);

  // The new objects, and their entries of the offset table (8 bytes each).
  const std::string& bytes() const { return bytes_; }
  const std::vector<std::uint64_t>& offsets() const { return offsets_; }

 private:
  std::uint32_t encodeContainer(const Value& value, int depth);
  std::uint32_t encodeInteger(std::int64_t number);
  std::uint32_t encodeReal(unsigned char marker, double number);
  std::uint32_t encodeData(const Data& data);
  std::uint32_t encodeUID(std::uint32_t number);
  // The object that begins at start and ends here is finished: a new one, or one that stands already.
  std::uint32_t finishScalar(std::size_t start);
  std::uint32_t addObject(std::size_t start);
  bool standsAt(std::uint32_t index, std::string_view encoded) const;

  const BinaryObjects& existing_;
  ScalarTable& table_;
  std::string bytes_;
  std::vector<std::uint64_t> offsets_;
  std::vector<std::uint32_t> references_;  // of the containers being encoded, innermost last
};

// Appends the number in so many big-endian bytes.
void appendBigEndian(std::uint64_t number, std::size_t size, std::string& out);
// Appends a marker with its length: in the low half of its byte, or as an integer behind it.
void appendMarker(unsigned char marker, std::size_t count, std::string& out);
void appendTrailer(std::size_t offsetSize, std::size_t referenceSize, std::size_t count, std::size_t top,
                   std::size_t tableStart, std::string& out);

}  // namespace zorvane::platform
