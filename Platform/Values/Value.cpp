#include "Platform/Values/Value.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <limits>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/Time/CivilTime.h"
#include "Platform/Values/Text.h"

namespace zorvane::platform {
namespace {

// Above this size a dictionary looks keys up by hash.
constexpr std::size_t kIndexedSize = 16;
// A host may nest values deeper than a stack is. Their description ends here.
constexpr std::size_t kDescribedLevels = 512;
// Containers destroyed inside one another; those further inside wait.
constexpr int kDestroyedLevels = 64;

#if defined(__SANITIZE_THREAD__)
#define ZR_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZR_THREAD_SANITIZER
#endif
#endif

// How many containers are being destroyed inside one another on this thread, and the contents of those that wait.
thread_local int destroyedLevels = 0;
thread_local std::vector<std::variant<Array, Dictionary>>* waitingContents = nullptr;

// A container as values share it.
template <typename T>
class Shared final : public T {
 public:
  explicit Shared(T content) : T(std::move(content)) {}
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;
  ~Shared() {
    if (destroyedLevels < kDestroyedLevels) {
      ++destroyedLevels;
      T::clear();
      --destroyedLevels;
    } else if (waitingContents) {
      waitingContents->emplace_back(static_cast<T&&>(*this));
    } else {
      std::vector<std::variant<Array, Dictionary>> waiting;
      waitingContents = &waiting;
      T::clear();
      while (!waiting.empty()) {
        const auto next = std::move(waiting.back());
        waiting.pop_back();
      }
      waitingContents = nullptr;
    }
  }
};

template <typename T>
std::shared_ptr<T> makeShared(T content) {
  return std::make_shared<Shared<T>>(std::move(content));
}

template <typename T>
T& uniqueCopy(std::shared_ptr<T>& holder) {
  // Only the last holder may write in place; a holder that appears later copied this Value, which its owner serialises.
  if (holder.use_count() != 1) {
    holder = makeShared(T(*holder));
    return *holder;
  }
  // What the other holders read comes before the writing: the count is read without an order of its own.
#if defined(ZR_THREAD_SANITIZER)
  std::shared_ptr<T>(holder).reset();  // the same through the count itself: the sanitizer knows no fences
#else
  std::atomic_thread_fence(std::memory_order_acquire);
#endif
  return *holder;
}

[[noreturn]] void throwNoReading(const Value& value, const char* reading) {
  throw ValueError("no " + std::string(reading) + " in " + value.description());
}

bool equalIntegerAndDouble(std::int64_t integer, double number) {
  constexpr double kLimit = 9223372036854775808.0;
  if (!(number >= -kLimit && number < kLimit)) return false;
  return static_cast<double>(static_cast<std::int64_t>(number)) == number &&
         static_cast<std::int64_t>(number) == integer;
}

bool equalNumbers(const Value& left, const Value& right) {
  const double* leftDouble = left.asDouble();
  const double* rightDouble = right.asDouble();
  if (leftDouble && rightDouble) return *leftDouble == *rightDouble;
  if (leftDouble) return equalIntegerAndDouble(right.integerValue(), *leftDouble);
  if (rightDouble) return equalIntegerAndDouble(left.integerValue(), *rightDouble);
  return left.integerValue() == right.integerValue();
}

// Pairs of containers whose elements are still to be compared.
using PairsOfContainers = std::vector<std::pair<const Value*, const Value*>>;

// Whether the values are equal, but for the elements of containers.
bool equalOutside(const Value& left, const Value& right, PairsOfContainers& inside) {
  if (left.isNumber() && right.isNumber()) return equalNumbers(left, right);
  if (left.kind() != right.kind()) return false;
  switch (left.kind()) {
    case Value::Kind::String:
      return *left.asString() == *right.asString();
    case Value::Kind::Data:
      return *left.asData() == *right.asData();
    case Value::Kind::Date:
      return *left.asDate() == *right.asDate();
    case Value::Kind::URL:
      return *left.asURL() == *right.asURL();
    case Value::Kind::Array:
      if (left.asArray() != right.asArray()) inside.emplace_back(&left, &right);
      return left.asArray()->size() == right.asArray()->size();
    case Value::Kind::Dictionary:
      if (left.asDictionary() != right.asDictionary()) inside.emplace_back(&left, &right);
      return left.asDictionary()->size() == right.asDictionary()->size();
    case Value::Kind::Object:
      return left.asObject()->isEqual(*right.asObject());
    default:
      return true;  // nil and the null marker
  }
}

bool equalElements(const Dictionary& left, const Dictionary& right, PairsOfContainers& inside) {
  if (left.size() != right.size()) return false;
  for (const auto& [key, value] : left) {
    const Value* other = right.find(key);
    if (!other || !equalOutside(value, *other, inside)) return false;
  }
  return true;
}

bool equalInside(PairsOfContainers& inside) {
  while (!inside.empty()) {
    const auto [left, right] = inside.back();
    inside.pop_back();
    if (const Dictionary* dictionary = left->asDictionary()) {
      if (!equalElements(*dictionary, *right->asDictionary(), inside)) return false;
      continue;
    }
    const Array& elements = *left->asArray();
    for (std::size_t i = 0; i < elements.size(); ++i) {
      if (!equalOutside(elements[i], (*right->asArray())[i], inside)) return false;
    }
  }
  return true;
}

void describe(const Value& value, std::size_t indent, std::string& out) {
  const bool isContainer = value.isArray() || value.isDictionary();
  if (isContainer && indent == 4 * kDescribedLevels) {
    out += "...";
  } else if (const Array* array = value.asArray()) {
    out += "(\n";
    for (std::size_t i = 0; i < array->size(); ++i) {
      out.append(indent + 4, ' ');
      describe((*array)[i], indent + 4, out);
      out += i + 1 < array->size() ? ",\n" : "\n";
    }
    out.append(indent, ' ');
    out += ')';
  } else if (const Dictionary* dictionary = value.asDictionary()) {
    out += "{\n";
    for (const auto& [key, element] : *dictionary) {
      out.append(indent + 4, ' ');
      out += key;
      out += " = ";
      describe(element, indent + 4, out);
      out += ";\n";
    }
    out.append(indent, ' ');
    out += '}';
  } else {
    out += value.description();
  }
}

std::string describeData(const Data& data) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "<";
  for (std::uint8_t byte : data.bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  text += '>';
  return text;
}

}  // namespace

Value Object::plainValue() const {
  return description();
}

Value::Value(const char* text) {
  if (text) storage_ = validUtf8(text);
}
Value::Value(std::string text) : storage_(validUtf8(std::move(text))) {}
Value::Value(std::string_view text) : storage_(validUtf8(std::string(text))) {}
Value::Value(Data data) : storage_(std::make_shared<const Data>(std::move(data))) {}
Value::Value(URL url) : storage_(std::make_shared<const URL>(URL{validUtf8(std::move(url.absoluteString))})) {}
Value::Value(Array array) : storage_(makeShared(std::move(array))) {}
Value::Value(Dictionary dictionary) : storage_(makeShared(std::move(dictionary))) {}

const Data* Value::asData() const noexcept {
  const auto* shared = std::get_if<std::shared_ptr<const Data>>(&storage_);
  return shared ? shared->get() : nullptr;
}
const URL* Value::asURL() const noexcept {
  const auto* shared = std::get_if<std::shared_ptr<const URL>>(&storage_);
  return shared ? shared->get() : nullptr;
}
const Array* Value::asArray() const noexcept {
  const auto* shared = std::get_if<std::shared_ptr<Array>>(&storage_);
  return shared ? shared->get() : nullptr;
}
const Dictionary* Value::asDictionary() const noexcept {
  const auto* shared = std::get_if<std::shared_ptr<Dictionary>>(&storage_);
  return shared ? shared->get() : nullptr;
}
std::shared_ptr<const Object> Value::asObject() const noexcept {
  const auto* shared = std::get_if<std::shared_ptr<const Object>>(&storage_);
  return shared ? *shared : nullptr;
}

Array& Value::mutableArray() {
  auto* shared = std::get_if<std::shared_ptr<Array>>(&storage_);
  if (!shared) throwNoReading(*this, "array");
  return uniqueCopy(*shared);
}
Dictionary& Value::mutableDictionary() {
  auto* shared = std::get_if<std::shared_ptr<Dictionary>>(&storage_);
  if (!shared) throwNoReading(*this, "dictionary");
  return uniqueCopy(*shared);
}

std::int64_t Value::integerValue() const {
  switch (kind()) {
    case Kind::Nil:
      return 0;
    case Kind::Bool:
      return *asBool() ? 1 : 0;
    case Kind::Integer:
      return *asInteger();
    case Kind::Double: {
      constexpr double kLimit = 9223372036854775808.0;
      const double number = *asDouble();
      if (std::isnan(number)) return 0;
      if (number >= kLimit) return std::numeric_limits<std::int64_t>::max();
      if (number < -kLimit) return std::numeric_limits<std::int64_t>::min();
      return static_cast<std::int64_t>(number);
    }
    case Kind::String:
      return leadingInteger(*asString()).value_or(0);
    default:
      throwNoReading(*this, "integer");
  }
}

double Value::doubleValue() const {
  switch (kind()) {
    case Kind::Nil:
      return 0;
    case Kind::Bool:
      return *asBool() ? 1 : 0;
    case Kind::Integer:
      return static_cast<double>(*asInteger());
    case Kind::Double:
      return *asDouble();
    case Kind::String:
      return leadingDouble(*asString()).value_or(0);
    default:
      throwNoReading(*this, "number");
  }
}

bool Value::boolValue() const {
  switch (kind()) {
    case Kind::Nil:
      return false;
    case Kind::Bool:
      return *asBool();
    case Kind::Integer:
      return *asInteger() != 0;
    case Kind::Double:
      return *asDouble() != 0;
    case Kind::String: {
      std::string_view text = *asString();
      text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
      if (!text.empty() && (text[0] == '+' || text[0] == '-')) text.remove_prefix(1);
      text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
      return !text.empty() && std::string_view("123456789YyTt").find(text[0]) != std::string_view::npos;
    }
    default:
      throwNoReading(*this, "boolean");
  }
}

std::string Value::description() const {
  switch (kind()) {
    case Kind::Nil:
      return "(null)";
    case Kind::Null:
      return "<null>";
    case Kind::Bool:
      return *asBool() ? "1" : "0";
    case Kind::Integer:
      return textOfInteger(*asInteger());
    case Kind::Double:
      return textOfDouble(*asDouble());
    case Kind::String:
      return *asString();
    case Kind::Data:
      return describeData(*asData());
    case Kind::Date:
      return describeDate(*asDate());
    case Kind::URL:
      return asURL()->absoluteString;
    case Kind::Object:
      return asObject()->description();
    case Kind::Array:
    case Kind::Dictionary:
      break;
  }
  std::string text;
  describe(*this, 0, text);
  return text;
}

bool operator==(const Value& left, const Value& right) {
  PairsOfContainers inside;
  return equalOutside(left, right, inside) && equalInside(inside);
}

Dictionary::Dictionary(std::initializer_list<std::pair<std::string_view, Value>> pairs) {
  reserve(pairs.size());
  for (const auto& [key, value] : pairs) setObjectNilHandledForKey(value, key);
}

std::size_t Dictionary::indexOf(std::string_view key) const noexcept {
  if (slots_.empty()) {
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      if (entries_[i].key == key) return i;
    }
    return kNotFound;
  }
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t slot = std::hash<std::string_view>{}(key)&mask; slots_[slot] != 0; slot = (slot + 1) & mask) {
    const std::size_t index = slots_[slot] - 1;
    if (entries_[index].key == key) return index;
  }
  return kNotFound;
}

void Dictionary::rebuildIndex() {
  slots_.clear();
  if (entries_.size() <= kIndexedSize) return;
  std::size_t capacity = 64;
  while (capacity < entries_.size() * 4) capacity *= 2;
  slots_.resize(capacity);
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    std::size_t slot = std::hash<std::string_view>{}(entries_[i].key) & (capacity - 1);
    while (slots_[slot] != 0) slot = (slot + 1) & (capacity - 1);
    slots_[slot] = static_cast<std::uint32_t>(i + 1);
  }
}

const Value* Dictionary::find(std::string_view key) const noexcept {
  const std::size_t index = indexOf(key);
  return index == kNotFound ? nullptr : &entries_[index].value;
}

Value* Dictionary::findMutable(std::string_view key) noexcept {
  const std::size_t index = indexOf(key);
  return index == kNotFound ? nullptr : &entries_[index].value;
}

Value Dictionary::objectForKey(std::string_view key) const {
  const Value* value = find(key);
  return value ? *value : Value();
}

void Dictionary::set(std::string_view key, Value value) {
  if (value.isNil()) throw ValueError("nil for the key " + std::string(key));
  std::string validKey = validUtf8(std::string(key));
  const std::size_t index = indexOf(validKey);
  if (index != kNotFound) {
    entries_[index].value = std::move(value);
    return;
  }
  if (entries_.empty() && entries_.capacity() == 0) entries_.reserve(4);
  entries_.push_back({std::move(validKey), std::move(value)});
  if (entries_.size() <= kIndexedSize) return;
  if (entries_.size() * 2 > slots_.size()) {
    rebuildIndex();
    return;
  }
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = std::hash<std::string_view>{}(entries_.back().key) & mask;
  while (slots_[slot] != 0) slot = (slot + 1) & mask;
  slots_[slot] = static_cast<std::uint32_t>(entries_.size());
}

void Dictionary::setObjectNilHandledForKey(Value value, std::string_view key) {
  if (!value.isNil()) set(key, std::move(value));
}

bool Dictionary::remove(std::string_view key) {
  const std::size_t index = indexOf(key);
  if (index == kNotFound) return false;
  entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(index));
  if (!slots_.empty()) rebuildIndex();
  return true;
}

void Dictionary::clear() noexcept {
  entries_.clear();
  slots_.clear();
}

bool operator==(const Dictionary& left, const Dictionary& right) {
  PairsOfContainers inside;
  return equalElements(left, right, inside) && equalInside(inside);
}

}  // namespace zorvane::platform
