// Encodes values as the objects of a binary property list.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// Where scalars and sets of keys stand that were encoded lately. Of fixed size.
class ScalarTable {
 public:
  ScalarTable() : slots_(kSlots) {}

 private:
  friend class BinaryEncoder;
  static constexpr std::size_t kSlots = 4096;
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t index = kNone;
  };
  // Events have few different sets of keys.
  struct KeySet {
    std::vector<Text> keys;
    std::vector<std::uint32_t> references;
    std::size_t byteCount = 0;
  };

  std::vector<Slot> slots_;
  std::array<KeySet, 4> keySets_;
  std::size_t nextKeySet_ = 0;
};

// Appends objects to those of an existing file. Each object comes after those it refers to. A scalar that equals a
// recent one is not written again.
class BinaryEncoder {
 public:
  // The objects must outlive the encoder and have references of two or four bytes. The table is that of an encoder of
  // the same objects, or null: then the first of the objects are looked at.
  explicit BinaryEncoder(BinaryObjects& objects, std::unique_ptr<ScalarTable> table = nullptr);

  // Returns the index of the value's object. depth is the number of containers around the value. Nil becomes "".
  std::uint32_t encode(const Value& value, int depth);
  std::uint32_t encodeText(std::string_view text);
  // Copies an object of another file with all that it refers to, without decoding it. A missing, malformed or too deep
  // object and a cycle become references out of range. copies holds, for each object of that file, the index of its
  // copy, or 0. It must not be shared by objects that can be decoded and others.
  using Copies = std::vector<std::uint32_t>;
  std::uint32_t copy(const BinaryObjects& from, std::size_t index, int depth, Copies& copies);

  // From here on, what is encoded must fit a full allowance. Once it does not, isDecodable is false and the encoder
  // stops to encode values: what it returns is of no use.
  void beginEntry();
  bool isDecodable() const { return isDecodable_; }

  // The new objects, and the position of each in the whole file.
  const std::string& bytes() const { return bytes_; }
  const std::vector<std::uint32_t>& offsets() const { return offsets_; }
  // Whether all objects can be referred to: references of two bytes reach the first 65,535.
  bool fits() const { return objects_.referenceSize > 2 || objects_.count + offsets_.size() <= 0xFFFF; }
  // Moves the new objects to the existing ones.
  void commit();
  // The encoder must not be used any more.
  std::unique_ptr<ScalarTable> takeTable() { return std::move(table_); }

 private:
  void findExisting();
  std::uint32_t encodeContainer(const Value& value, int depth);
  // Appends the references of the dictionary's keys to references_.
  void addKeys(const Dictionary& dictionary);
  void appendInteger(std::uint64_t bits, bool isLarge);
  void appendReal(unsigned char marker, double number);
  void appendUID(std::uint32_t number);
  // Writes a container of the references from firstReference on, and drops them.
  std::uint32_t addContainer(unsigned char marker, std::size_t count, std::size_t firstReference);
  // Ends the object that begins at start. Drops it again if an equal one is in the table.
  std::uint32_t finishScalar(std::size_t start);
  std::uint32_t addObject(std::size_t start);
  // The slot of an equal scalar; else one whose index may be replaced, and isEqual is false.
  ScalarTable::Slot& slotOf(std::uint32_t hash, std::string_view encoded, bool& isEqual);
  bool isEqualTo(std::uint32_t index, std::string_view encoded) const;

  BinaryObjects& objects_;
  std::unique_ptr<ScalarTable> table_;
  std::string bytes_;
  std::vector<std::uint32_t> offsets_;
  std::vector<std::uint32_t> references_;  // of the containers being encoded, innermost last
  DecodingAllowance allowance_{SIZE_MAX, SIZE_MAX};
  bool isDecodable_ = true;
};

// Appends the number as size big-endian bytes.
void appendBigEndian(std::uint64_t number, std::size_t size, std::string& out);
// Appends each number, or its last 16 bits, as size big-endian bytes, 4 or 2.
void appendBigEndian(std::span<const std::uint32_t> numbers, std::size_t size, std::string& out);
// Appends a marker with its length: in the marker's low four bits, or as an integer after it.
void appendMarker(unsigned char marker, std::size_t count, std::string& out);
void appendTrailer(std::size_t offsetSize, std::size_t referenceSize, std::uint64_t count, std::uint64_t top,
                   std::uint64_t tableStart, std::string& out);

}  // namespace zorvane::platform
