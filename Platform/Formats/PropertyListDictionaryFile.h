// A property-list file whose root is a dictionary. Opening it does not decode its entries; adding one does not encode
// the others again.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

struct BinaryObjects;

// The value of an entry, decoded on demand. Keeps the file's bytes alive. Cheap to copy, immutable, thread-safe.
class LazyPropertyListValue {
 public:
  // False when it is malformed, deeper than 128 levels, or larger than one entry may be: 4,000,000 elements and pairs,
  // or 256 MB of texts and numbers. What follows then gives nil, null or what can be told without decoding.
  bool isDecodable() const { return isDecodable_; }
  // The whole value.
  Value decode() const;
  // The number of elements of an array; else 0.
  std::size_t count() const;
  bool isArray() const;
  bool isDictionary() const;
  // Appends jsonText(decode()) without building values.
  void appendJSON(std::string& out) const;
  // The values under these keys of a dictionary, in their order. One that is missing is not decodable.
  std::vector<LazyPropertyListValue> elements(std::span<const std::string_view> keys) const;
  LazyPropertyListValue element(std::string_view key) const { return elements({&key, 1})[0]; }
  // An object that is decoded where its plain value is asked for, and that jsonText writes by appendJSON. Nil when this
  // value is not decodable.
  Value deferred() const;

 private:
  friend class PropertyListDictionarySnapshot;
  LazyPropertyListValue(std::shared_ptr<const BinaryObjects> source, std::size_t object, bool isDecodable);

  std::shared_ptr<const BinaryObjects> source_;
  std::size_t object_;
  bool isDecodable_;
};

// How many elements, from the first on, an entry can hold in an array beside `rest` and a few short texts, so that it
// can be decoded. 0 when the first is too large by itself. Objects are asked for their plain value.
std::size_t countForEntry(const Array& elements, std::size_t first, const Value& rest);

// The content of such a file, immutable. Opens any property list with a dictionary at its root. Extends by copying
// bytes only what this class wrote; an XML file is encoded when it is opened.
class PropertyListDictionarySnapshot {
 public:
  struct Entry {
    std::string key;
    LazyPropertyListValue value;
  };

  // An empty dictionary.
  PropertyListDictionarySnapshot();
  // Of a repeated key the first value holds in a binary file, the last in an XML file. Entries with a malformed key are
  // left out. An XML file with an entry that cannot be decoded is refused.
  static Result<PropertyListDictionarySnapshot> open(std::string bytes);

  const std::vector<Entry>& entries() const { return *sharedEntries(); }
  // The same, valid while the result lives.
  std::shared_ptr<const std::vector<Entry>> sharedEntries() const;
  // A new snapshot with these entries added or replaced. Encodes only the new values. Absent when one of them is too
  // large to be decoded. Throws std::length_error beyond 4 GiB.
  std::optional<PropertyListDictionarySnapshot> withEntries(const Dictionary& added) const;
  // The same for one entry that is not too large; the same content for nil.
  PropertyListDictionarySnapshot withEntry(std::string_view key, const Value& value) const {
    return withEntries({{key, value}}).value();
  }
  // A new snapshot of just these entries. One that cannot be decoded is copied as far as its objects can be read, and
  // stays undecodable.
  static PropertyListDictionarySnapshot ofEntries(std::span<const Entry> entries);

  // The file's content in pieces, in order; valid while this snapshot lives.
  std::vector<std::string_view> pieces() const;

 private:
  struct State;
  class Builder;
  // A new file of both.
  static std::optional<PropertyListDictionarySnapshot> build(std::span<const Entry> entries, const Dictionary& added);
  explicit PropertyListDictionarySnapshot(std::shared_ptr<const State> state) : state_(std::move(state)) {}

  std::shared_ptr<const State> state_;
};

}  // namespace zorvane::platform
