// The values that events, attributes, files and requests are made of.
//
// A Value is one of a closed set of kinds. It is cheap to copy: containers are copied on write. Text is UTF-8; each
// invalid sequence that a host passes in becomes U+FFFD.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Export.h"
#include "Platform/Text/Text.h"
#include "Platform/Time/Date.h"

namespace zorvane::platform {

// What a value can be.
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
// An array that holds one array: Array{Value(Array{1, 2})}. Compilers disagree on Array{Array{1, 2}}.
using Array = std::vector<Value>;

// Thrown when a value is read as something that its kind cannot give (an array as a number).
class ZR_PUBLIC ValueError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The null marker: a value that is present and null. Nil is the absent value.
struct NullMarker {
  friend bool operator==(NullMarker, NullMarker) = default;
};
// The null marker, as a value.
inline constexpr NullMarker null{};

// Bytes.
struct Data {
  // May be empty.
  std::vector<std::uint8_t> bytes;
  friend bool operator==(const Data&, const Data&) = default;
};

// The text of a URL.
struct URL {
  // As given; it need not parse.
  std::string absoluteString;
  friend bool operator==(const URL&, const URL&) = default;
};

// Base class of the objects that a Value can hold. They must be immutable or thread-safe.
class ZR_PUBLIC Object {
 public:
  virtual ~Object() = default;
  // The "%@" rendering.
  virtual std::string description() const = 0;
  // What files and requests hold in place of the object: a value without objects inside. Default: its description.
  virtual inline Value plainValue() const;
  // Whether both stand for the same thing. Default: they are the same object.
  virtual bool isEqual(const Object& other) const { return this == &other; }
  // Identifies the class. ObjectOf overrides it.
  virtual const void* classID() const noexcept { return nullptr; }
  // This object if it is a T, else null. T derives from ObjectOf<T>.
  template <typename T>
  const T* as() const noexcept {
    return classID() == &T::kClassID ? static_cast<const T*>(this) : nullptr;
  }
};

// Base class of a class T whose objects can be told from others, without RTTI.
template <typename T>
class ZR_PUBLIC ObjectOf : public Object {
 public:
  // The same for every object of T.
  const void* classID() const noexcept final { return &kClassID; }
  // Only its address matters.
  static inline char kClassID = 0;
};

template <typename T>
concept IntegerValue =
    std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> && !std::same_as<T, wchar_t> &&
    !std::same_as<T, char8_t> && !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

template <typename T>
concept OtherPointee = !std::same_as<T, char>;

// One value.
class ZR_PUBLIC Value {
 public:
  // What a value can be: Value::Kind::String, for example.
  using Kind = ValueKind;

  // Nil, the null marker, booleans, numbers. An integer beyond 64 bits with a sign becomes a double.
  Value() noexcept {}
  Value(std::nullptr_t) noexcept {}
  Value(NullMarker) noexcept : kind_(Kind::Null) {}
  template <std::same_as<bool> T>
  Value(T value) noexcept : kind_(Kind::Bool), bool_(value) {}
  template <IntegerValue T>
  Value(T value) noexcept {
    if (std::in_range<std::int64_t>(value)) {
      kind_ = Kind::Integer;
      integer_ = static_cast<std::int64_t>(value);
    } else {
      kind_ = Kind::Double;
      double_ = static_cast<double>(value);
    }
  }
  template <std::floating_point T>
  Value(T value) noexcept : kind_(Kind::Double), double_(static_cast<double>(value)) {}
  // A null pointer is nil.
  Value(const char* text);
  // Text, data, dates, URLs, containers, objects. A null object is nil.
  Value(const std::string& text) : Value(std::string_view(text)) {}
  Value(std::string_view text);
  Value(Text text);
  Value(Data data);
  Value(Date date) noexcept : kind_(Kind::Date), date_(date) {}
  Value(URL url);
  Value(Array array);
  Value(Dictionary dictionary);
  template <std::derived_from<Object> T>
  Value(std::shared_ptr<T> object) noexcept {
    if (object) share(Kind::Object, std::shared_ptr<const Object>(std::move(object)));
  }
  // Other pointers do not convert, not even to bool.
  template <OtherPointee T>
  Value(T*) = delete;

  // Shares a dictionary that nobody else changes any more. Null is nil. The last value that holds it may change it in
  // place, so it must not be a const object.
  static Value sharing(std::shared_ptr<const Dictionary> dictionary) noexcept {
    Value value;
    if (dictionary) value.share(Kind::Dictionary, std::move(dictionary));
    return value;
  }

  // Cheap: what is large is shared.
  Value(const Value& other);
  // Leaves nil behind.
  Value(Value&& other) noexcept { take(other); }
  // By copy or move.
  Value& operator=(Value other) noexcept {
    release();
    take(other);
    return *this;
  }
  ~Value() { release(); }

  // What the value is.
  Kind kind() const noexcept { return kind_; }
  bool isNil() const noexcept { return kind() == Kind::Nil; }
  bool isNull() const noexcept { return kind() == Kind::Null; }
  bool isString() const noexcept { return kind() == Kind::String; }
  bool isArray() const noexcept { return kind() == Kind::Array; }
  bool isDictionary() const noexcept { return kind() == Kind::Dictionary; }
  // Booleans are numbers.
  bool isNumber() const noexcept { return kind() >= Kind::Bool && kind() <= Kind::Double; }

  // Null if the value is of another kind. Valid until this Value is changed or destroyed.
  const bool* asBool() const noexcept ZR_LIFETIME_BOUND { return kind_ == Kind::Bool ? &bool_ : nullptr; }
  const std::int64_t* asInteger() const noexcept ZR_LIFETIME_BOUND {
    return kind_ == Kind::Integer ? &integer_ : nullptr;
  }
  const double* asDouble() const noexcept ZR_LIFETIME_BOUND { return kind_ == Kind::Double ? &double_ : nullptr; }
  const Text* asString() const noexcept ZR_LIFETIME_BOUND { return kind_ == Kind::String ? &text_ : nullptr; }
  const Data* asData() const noexcept { return sharedAs<Data>(Kind::Data); }
  const Date* asDate() const noexcept ZR_LIFETIME_BOUND { return kind_ == Kind::Date ? &date_ : nullptr; }
  const URL* asURL() const noexcept { return sharedAs<URL>(Kind::URL); }
  const Array* asArray() const noexcept { return sharedAs<Array>(Kind::Array); }
  const Dictionary* asDictionary() const noexcept { return sharedAs<Dictionary>(Kind::Dictionary); }
  // The shared object itself; null if the value is no object, or no T.
  std::shared_ptr<const Object> asObject() const noexcept;
  template <std::derived_from<Object> T>
  std::shared_ptr<const T> asObject() const noexcept {
    auto object = asObject();
    const T* const wanted = object ? object->template as<T>() : nullptr;
    if (!wanted) return nullptr;
    return {std::move(object), wanted};
  }

  // Write access to a container; shared storage is copied first. Throws ValueError for any other kind. Do not use the
  // reference after this Value was copied: the copy would change too.
  Array& mutableArray();
  Dictionary& mutableDictionary();

  // Numbers, and text by its leading number after blanks ("12abc" is 12; "abc", "nan" and "inf" are 0), clamped to the
  // range. Nil is 0 and false. Every other kind throws ValueError.
  std::int64_t integerValue() const;
  double doubleValue() const;
  // Text is true when its first character after blanks, sign and zeros is a digit 1 to 9 or one of Y, y, T, t.
  bool boolValue() const;

  // The "%@" rendering: text as it is, nil "(null)", the null marker "<null>", booleans "1" and "0", doubles in the
  // shortest form that reads back, dates "2026-11-21 10:00:00 +0000", containers over several lines and
  // down to 512 levels.
  std::string description() const;

  // Numbers compare by value whatever their kind; text never equals a number; nil equals only nil.
  friend ZR_PUBLIC bool operator==(const Value& left, const Value& right);

 private:
  // Whether a content of that kind must be destroyed.
  static bool isManaged(Kind kind) noexcept { return kind >= Kind::String && kind != Kind::Date; }
  template <typename T>
  const T* sharedAs(Kind kind) const noexcept {
    return kind_ == kind ? static_cast<const T*>(shared_.get()) : nullptr;
  }
  // Only for a value that is nil.
  void share(Kind kind, std::shared_ptr<const void> content) noexcept {
    new (&shared_) std::shared_ptr<const void>(std::move(content));
    kind_ = kind;
  }
  void setText(Text text);
  void take(Value& other) noexcept;
  void release() noexcept {
    if (kind_ == Kind::String) {
      text_.~Text();
    } else if (isManaged(kind_)) {
      destroy();
    }
  }
  // Of any managed kind but text.
  void destroy() noexcept;

  Kind kind_ = Kind::Nil;
  union {
    bool bool_;
    std::int64_t integer_ = 0;
    double double_;
    Date date_;
    Text text_;
    // Data, URL, array, dictionary or object.
    std::shared_ptr<const void> shared_;
  };
};

// The object's plain value. Where that is an object again, against the rule, its plain value, and so on for eight
// steps; then nil.
ZR_PUBLIC Value plainValueOf(const Object& object);

// Text keys to values, in insertion order; a key that is set again keeps its place. Copies are independent and cheap:
// nested containers are copied on write.
class ZR_PUBLIC Dictionary {
 public:
  // A key and its value.
  struct Entry {
    // Takes the value.
    Entry(std::string_view theKey, Value&& theValue) : key(theKey), value(std::move(theValue)) {}
    // UTF-8.
    Text key;
    // Not nil.
    Value value;
  };
  // What an initializer list holds. The value is mutable because the dictionary moves it out of the list.
  struct Pair {
    // UTF-8, and what stands under it.
    std::string_view key;
    mutable Value value;
  };
  // Goes through the entries.
  using const_iterator = std::vector<Entry>::const_iterator;

  Dictionary() = default;
  // Leaves out nil values; of a repeated key the last value holds. Empties the list.
  Dictionary(std::initializer_list<Pair> pairs);

  // As of std::vector, in insertion order.
  std::size_t size() const noexcept { return entries_.size(); }
  bool empty() const noexcept { return entries_.empty(); }
  const_iterator begin() const noexcept { return entries_.begin(); }
  const_iterator end() const noexcept { return entries_.end(); }

  // Null when the key is missing. Valid until the dictionary is changed. The key as it is stored: valid UTF-8.
  const Value* find(std::string_view key) const noexcept;
  // Null for the null marker, too.
  const Value* findNonNull(std::string_view key) const noexcept;
  // Also for the null marker.
  bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
  // A copy of the value under the key; nil when it is missing.
  Value objectForKey(std::string_view key) const;

  // Throws ValueError for nil.
  void set(std::string_view key, Value value);
  // Does nothing for nil.
  void setObjectNilHandledForKey(Value value, std::string_view key);
  // True when the key was there. Keeps the order of the others.
  bool remove(std::string_view key);
  // Removes all entries.
  void clear() noexcept;
  // Makes room for so many entries.
  void reserve(std::size_t count) { entries_.reserve(count); }

  // Same keys with equal values, in any order.
  friend ZR_PUBLIC bool operator==(const Dictionary& left, const Dictionary& right);

 private:
  static constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);
  // Larger dictionaries look keys up by hash.
  static constexpr std::size_t kIndexedSize = 16;
  std::size_t indexOf(std::string_view key) const noexcept;
  void put(std::string_view key, Value&& value);
  void rebuildIndex();
  void addToIndex(std::size_t entry);

  std::vector<Entry> entries_;
  std::vector<std::uint32_t> slots_;  // hash index of large dictionaries: entry number + 1, or 0
};

inline Value Object::plainValue() const {
  return description();
}

}  // namespace zorvane::platform
