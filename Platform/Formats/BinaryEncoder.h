// Encodes values as the objects of a binary property list. Equal scalars are written once.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// Hash table from the encoded bytes of a scalar to the index of its object.
class ScalarTable {
 public:
  static constexpr std::uint32_t kNotFound = 0xFFFFFFFF;

  static std::uint32_t hashOf(std::string_view encoded);
  // An index with this hash for which isEqual(index) holds, or kNotFound.
  template <typename IsEqual>
  std::uint32_t find(std::uint32_t hash, IsEqual isEqual) const {
    if (slots_.empty()) return kNotFound;
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = hash & mask; slots_[i].index != kNotFound; i = (i + 1) & mask) {
      if (slots_[i].hash == hash && isEqual(slots_[i].index)) return slots_[i].index;
    }
    return kNotFound;
  }
  void insert(std::uint32_t hash, std::uint32_t index);

 private:
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t index = kNotFound;
  };
  void place(Slot slot);

  std::vector<Slot> slots_;
  std::size_t used_ = 0;
};

// Appends objects to those of an existing file. References take four bytes. Each object comes after those it refers to.
class BinaryEncoder {
 public:
  // Both must outlive the encoder. The table must hold the scalars of the existing objects; new ones are added to it.
  BinaryEncoder(const BinaryObjects& existing, ScalarTable& table) : existing_(existing), table_(table) {}

  // Returns the index of the value's object. depth is the number of containers around the value. Nil becomes "".
  std::uint32_t encode(const Value& value, int depth);
  std::uint32_t encodeText(std::string_view text);
  // Copies an object of another file with all that it refers to, without decoding it. Equal scalars are written once.
  // A missing, malformed or too deep object and a cycle become references out of range. copies holds, for each
  // object of that file, the index of its copy, or 0. It must not be shared by objects that can be decoded and others.
  using Copies = std::vector<std::uint32_t>;
  std::uint32_t copy(const BinaryObjects& from, std::size_t index, int depth, Copies& copies);

  // The new objects, and the position of each in the whole file.
  const std::string& bytes() const { return bytes_; }
  const std::vector<std::uint64_t>& offsets() const { return offsets_; }

 private:
  std::uint32_t encodeContainer(const Value& value, int depth);
  // Appends the references of the dictionary's keys to references_.
  void addKeys(const Dictionary& dictionary);
  std::uint32_t encodeInteger(std::uint64_t bits, bool isLarge);
  std::uint32_t encodeReal(unsigned char marker, double number);
  std::uint32_t encodeData(const Data& data);
  std::uint32_t encodeUID(std::uint32_t number);
  // Writes a container of the references from firstReference on, and drops them.
  std::uint32_t addContainer(unsigned char marker, std::size_t count, std::size_t firstReference);
  // Ends the object that begins at start. Drops it again if an equal one exists.
  std::uint32_t finishScalar(std::size_t start);
  std::uint32_t addObject(std::size_t start);
  bool isEqualTo(std::uint32_t index, std::string_view encoded) const;

  const BinaryObjects& existing_;
  ScalarTable& table_;
  std::string bytes_;
  std::vector<std::uint64_t> offsets_;
  std::vector<std::uint32_t> references_;  // of the containers being encoded, innermost last
  // The keys of recent dictionaries: events have few different sets.
  struct KeySet {
    std::vector<std::string> keys;
    std::vector<std::uint32_t> references;
  };
  std::array<KeySet, 4> keySets_;
  std::size_t nextKeySet_ = 0;
};

// Appends the number as size big-endian bytes.
void appendBigEndian(std::uint64_t number, std::size_t size, std::string& out);
// Appends a marker with its length: in the marker's low four bits, or as an integer after it.
void appendMarker(unsigned char marker, std::size_t count, std::string& out);
void appendTrailer(std::size_t offsetSize, std::size_t referenceSize, std::size_t count, std::size_t top,
                   std::size_t tableStart, std::string& out);

}  // namespace zorvane::platform
