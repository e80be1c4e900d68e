// A property-list file whose root is a dictionary. Opening it does not decode its entries; adding one does not encode
// the others again.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

struct LazyPropertyListSource;

// The value of an entry, decoded on demand. Keeps the file's bytes alive. Cheap to copy, immutable, thread-safe.
class LazyPropertyListValue {
 public:
  // The whole value; nil when its bytes are malformed.
  Value decode() const;
  // The value under the key; nil when this value is no dictionary.
  Value decodeKey(std::string_view key) const;
  // The number of elements of the array under the key (of the whole value for an empty key); 0 when there is none.
  std::size_t countOfKey(std::string_view key) const;
  bool isArray() const;
  bool isDictionary() const;
  // Appends jsonText(decodeKey(key)), or the JSON of the whole value for an empty key. For a binary file, no
  // values are built.
  void appendJSONOfKey(std::string_view key, std::string& out) const;

  // A value in memory.
  explicit LazyPropertyListValue(Value value);

 private:
  friend class PropertyListDictionarySnapshot;
  LazyPropertyListValue(std::shared_ptr<const LazyPropertyListSource> source, std::size_t object);
  Value decodeAt(std::size_t object, int depth) const;

  std::shared_ptr<const LazyPropertyListSource> source_;
  std::size_t object_ = 0;
  Value value_;
};

// The content of such a file, immutable. Opens any property list with a dictionary at its root, XML too. Extends only
// those by copying bytes that this class wrote.
class PropertyListDictionarySnapshot {
 public:
  struct Entry {
    std::string key;
    LazyPropertyListValue value;
  };

  // An empty dictionary.
  PropertyListDictionarySnapshot();
  // Of a repeated key the first value holds in a binary file, the last in an XML file. Entries with a malformed key are
  // left out.
  static Result<PropertyListDictionarySnapshot> open(std::string bytes);

  const std::vector<Entry>& entries() const;
  // A new snapshot with the entry added or replaced; the same content for nil. Encodes the new value, and all others if
  // this class did not write the file.
  PropertyListDictionarySnapshot withEntry(std::string_view key, const Value& value) const;
  // A new snapshot of just these entries; malformed ones are left out. Encodes all of them again, one at a time.
  static PropertyListDictionarySnapshot ofEntries(std::span<const Entry> entries);

  // The file's content in pieces, in order; valid while this snapshot lives.
  std::vector<std::string_view> pieces() const;

 private:
  struct State;
  class Builder;
  explicit PropertyListDictionarySnapshot(std::shared_ptr<const State> state) : state_(std::move(state)) {}

  std::shared_ptr<const State> state_;
};

}  // namespace zorvane::platform
