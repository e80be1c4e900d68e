// The values that events, attributes, files and requests are made of.
//
// A Value is one of a closed set of kinds. It is cheap to copy (containers are shared until written to) and is never
// changed behind its holder's back. Text is UTF-8; what a host passes in is made valid (U+FFFD for each bad sequence).
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/Time/Date.h"

namespace zorvane::platform {

enum class ValueKind : std::uint8_t {
  Nil,
  Null,
  Bool,
  Integer,
  Double,
  String,
  Data,
  Date,
  URL,
  Array,
  Dictionary,
  Object
};

class Value;
class Dictionary;
// In braces, an array that holds one array is written Array{Value(Array{1, 2})}.
using Array = std::vector<Value>;

// A value was asked for a reading that its kind does not have ("[1, 2]" as a number).
class ValueError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The null marker: present, and null. Not to be confused with nil, the absent value.
struct NullMarker {
  friend bool operator==(NullMarker, NullMarker) = default;
};
inline constexpr NullMarker null{};

struct Data {
  std::vector<std::uint8_t> bytes;
  friend bool operator==(const Data&, const Data&) = default;
};

struct URL {
  std::string absoluteString;
  friend bool operator==(const URL&, const URL&) = default;
};

// Base of the objects that can stand in a Value. Immutable or synchronised by the class itself.
class Object {
 public:
  virtual ~Object() = default;
  // The "%@" rendering.
  virtual std::string description() const = 0;
  // The plain value (no object inside) that stands for this object where a file or a request cannot hold it.
  virtual Value plainValue() const;
  virtual bool isEqual(const Object& other) const { return this == &other; }
};

template <typename T>
concept IntegerValue =
    std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> && !std::same_as<T, wchar_t> &&
    !std::same_as<T, char8_t> && !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

template <typename T>
concept OtherPointee = !std::same_as<T, char>;

class Value {
 public:
  using Kind = ValueKind;

  Value() noexcept = default;
  Value(std::nullptr_t) noexcept {}
  Value(NullMarker) noexcept : storage_(NullMarker{}) {}
  template <std::same_as<bool> T>
  Value(T value) noexcept : storage_(value) {}
  template <IntegerValue T>
  Value(T value) noexcept {
    if (std::in_range<std::int64_t>(value)) {
      storage_ = static_cast<std::int64_t>(value);
    } else {
      storage_ = static_cast<double>(value);
    }
  }
  template <std::floating_point T>
  Value(T value) noexcept : storage_(static_cast<double>(value)) {}
  // A null pointer is nil.
  Value(const char* text);
  Value(std::string text);
  Value(std::string_view text);
  Value(Data data);
  Value(Date date) noexcept : storage_(date) {}
  Value(URL url);
  Value(Array array);
  Value(Dictionary dictionary);
  template <std::derived_from<Object> T>
  Value(std::shared_ptr<T> object) noexcept {
    if (object) storage_ = std::shared_ptr<const Object>(std::move(object));
  }
  // No other pointer is a value, and none is a boolean.
  template <OtherPointee T>
  Value(T*) = delete;

  Kind kind() const noexcept { return static_cast<Kind>(storage_.index()); }
  bool isNil() const noexcept { return kind() == Kind::Nil; }
  bool isNull() const noexcept { return kind() == Kind::Null; }
  bool isString() const noexcept { return kind() == Kind::String; }
  // Booleans are numbers.
  bool isNumber() const noexcept { return kind() >= Kind::Bool && kind() <= Kind::Double; }
  bool isArray() const noexcept { return kind() == Kind::Array; }
  bool isDictionary() const noexcept { return kind() == Kind::Dictionary; }

  // The value as the kind asked for, or null if it is of another. Valid as long as this Value is unchanged.
  const bool* asBool() const noexcept { return std::get_if<bool>(&storage_); }
  const std::int64_t* asInteger() const noexcept { return std::get_if<std::int64_t>(&storage_); }
  const double* asDouble() const noexcept { return std::get_if<double>(&storage_); }
  const std::string* asString() const noexcept { return std::get_if<std::string>(&storage_); }
  const Data* asData() const noexcept;
  const Date* asDate() const noexcept { return std::get_if<Date>(&storage_); }
  const URL* asURL() const noexcept;
  const Array* asArray() const noexcept;
  const Dictionary* asDictionary() const noexcept;
  // The shared object itself; null if the value is no object.
  std::shared_ptr<const Object> asObject() const noexcept;
  template <std::derived_from<Object> T>
  std::shared_ptr<const T> asObject() const noexcept {
    return std::dynamic_pointer_cast<const T>(asObject());
  }

  // Write access to a container: shared storage is copied first. Throws ValueError for any other kind. Not to be used
  // after this Value was copied: the copy would see the writing.
  Array& mutableArray();
  Dictionary& mutableDictionary();

  // Readings of numbers and of numeric text. Text is read by its leading number after blanks ("12abc" is 12, "abc",
  // "nan" and "inf" are 0); out of range it is clamped. Nil reads as 0 and false. Every other kind throws ValueError.
  std::int64_t integerValue() const;
  double doubleValue() const;
  // Of text: true when, after blanks, sign and zeros, a digit 1 to 9 or one of Y, y, T, t stands first.
  bool boolValue() const;

  // The "%@" rendering: text as it is, nil "(null)", the null marker "<null>", booleans "1" and "0", doubles in the
  // shortest form that reads back, dates "2026-11-21 10:00:00 +0000", containers over several lines and
  // down to 512 levels.
  std::string description() const;

  // Numbers compare by value whatever their kind; text never equals a number; nil equals only nil.
  friend bool operator==(const Value& left, const Value& right);

 private:
  using Storage = std::variant<std::monostate, NullMarker, bool, std::int64_t, double, std::string,
                               std::shared_ptr<const Data>, Date, std::shared_ptr<const URL>, std::shared_ptr<Array>,
                               std::shared_ptr<Dictionary>, std::shared_ptr<const Object>>;
  Storage storage_;
};

// Text keys to values, in the order of first setting. No value is nil: setting nil removes nothing and throws
// ValueError (use setObjectNilHandledForKey or remove). Copies are deep in effect and cheap in cost.
class Dictionary {
 public:
  struct Entry {
    std::string key;
    Value value;
  };
  using const_iterator = std::vector<Entry>::const_iterator;

  Dictionary() = default;
  // A nil value in the list is left out; a key that stands twice keeps its last value.
  Dictionary(std::initializer_list<std::pair<std::string_view, Value>> pairs);

  std::size_t size() const noexcept { return entries_.size(); }
  bool empty() const noexcept { return entries_.empty(); }
  const_iterator begin() const noexcept { return entries_.begin(); }
  const_iterator end() const noexcept { return entries_.end(); }

  // The value under the key, or null. Valid until the dictionary is changed.
  const Value* find(std::string_view key) const noexcept;
  Value* findMutable(std::string_view key) noexcept;
  bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
  // A copy of the value under the key; nil when it is missing.
  Value objectForKey(std::string_view key) const;

  void set(std::string_view key, Value value);
  // Skips a nil value.
  void setObjectNilHandledForKey(Value value, std::string_view key);
  // True when the key was there. The order of the others stays.
  bool remove(std::string_view key);
  void clear() noexcept;
  void reserve(std::size_t count) { entries_.reserve(count); }

  // Same keys with equal values, in any order.
  friend bool operator==(const Dictionary& left, const Dictionary& right);

 private:
  static constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);
  std::size_t indexOf(std::string_view key) const noexcept;
  void rebuildIndex();

  std::vector<Entry> entries_;
  std::vector<std::uint32_t> slots_;  // hash index (entry number + 1), kept only above a size where it pays
};

}  // namespace zorvane::platform
