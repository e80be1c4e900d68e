// A property-list file whose root is a dictionary, opened without decoding its entries and extended without encoding
// them again.
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

// One entry's value, decoded when asked for. Holds the file's bytes alive; cheap to copy; immutable, any thread.
class LazyPropertyListValue {
 public:
  // The whole value; nil when its bytes are unsound.
  Value decode() const;
  // The value under the key, where this value is a dictionary; nil otherwise.
  Value decodeKey(std::string_view key) const;
  // The number of elements under the key (of the whole value for an empty key), where an array stands there; 0
  // otherwise.
  std::size_t countOfKey(std::string_view key) const;
  bool isArray() const;
  bool isDictionary() const;
  // Appends the JSON of the value under the key (of the whole value for an empty key) without building values where the
  // encoding allows it; the same text as jsonText(decodeKey(key)).
  void appendJSONOfKey(std::string_view key, std::string& out) const;

  // A value that is held in memory instead of in a file.
  explicit LazyPropertyListValue(Value value);

 private:
  friend class PropertyListDictionaryImage;
  LazyPropertyListValue(std::shared_ptr<const LazyPropertyListSource> source, std::size_t object);
  Value decodeAt(std::size_t object, int depth) const;

  std::shared_ptr<const LazyPropertyListSource> source_;
  std::size_t object_ = 0;
  Value value_;
};

// The content of such a file, immutable. Any property list with a dictionary at its root can be opened, XML too; only
// one that this class wrote is extended by copying bytes.
class PropertyListDictionaryImage {
 public:
  struct Entry {
    std::string key;
    LazyPropertyListValue value;
  };

  // An empty dictionary.
  PropertyListDictionaryImage();
  // Of a key that stands twice in a file the first value holds in a binary one, the last in an XML one. An entry whose
  // key is unsound is left out.
  static Result<PropertyListDictionaryImage> open(std::string bytes);

  const std::vector<Entry>& entries() const;
  // A new image with one more entry (a key that is there already is replaced; nil changes nothing). Costs the encoding
  // of the new value, and of all others where the file was not written by this class.
  PropertyListDictionaryImage withEntry(std::string_view key, const Value& value) const;
  // A new image of just these entries, without what they do not need; unsound ones are left out. Costs the encoding of
  // all of them, one at a time.
  static PropertyListDictionaryImage ofEntries(std::span<const Entry> entries);

  // The file's content as pieces to be written one after the other; valid while this image lives.
  std::vector<std::string_view> pieces() const;

 private:
  struct State;
  class Builder;
  explicit PropertyListDictionaryImage(std::shared_ptr<const State> state) : state_(std::move(state)) {}

  std::shared_ptr<const State> state_;
};

}  // namespace zorvane::platform
