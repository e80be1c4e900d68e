#include "Platform/Values/Value.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

// Larger dictionaries look keys up by hash.
constexpr std::size_t kIndexedSize = 16;
// How deep destructors of containers recurse. Deeper content is queued, so that no nesting overflows the stack.
constexpr int kMaxDestructionDepth = 64;

#if defined(__SANITIZE_THREAD__)
#define ZR_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZR_THREAD_SANITIZER
#endif
#endif

thread_local int destructionDepth = 0;
// Set while the outermost queueing destructor empties its queue.
thread_local std::vector<std::variant<Array, Dictionary>>* destructionQueue = nullptr;

// A container as copies of a Value share it.
template <typename T>
class Shared final : public T {
 public:
  explicit Shared(T content) : T(std::move(content)) {}
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;
  ~Shared() {
    if (destructionDepth < kMaxDestructionDepth) {
      ++destructionDepth;
      T::clear();
      --destructionDepth;
    } else if (destructionQueue) {
      destructionQueue->emplace_back(static_cast<T&&>(*this));
    } else {
      std::vector<std::variant<Array, Dictionary>> queue;
      destructionQueue = &queue;
      T::clear();
      while (!queue.empty()) {
        const auto next = std::move(queue.back());
        queue.pop_back();
      }
      destructionQueue = nullptr;
    }
  }
};

template <typename T>
std::shared_ptr<T> makeShared(T content) {
  return std::make_shared<Shared<T>>(std::move(content));
}

template <typename T>
T& uniqueCopy(std::shared_ptr<T>& holder) {
  // Only the last holder writes in place. No holder can join now: that takes a copy of this Value, which its owner does
  // not make while writing.
  if (holder.use_count() != 1) {
    holder = makeShared(T(*holder));
    return *holder;
  }
  // use_count() is a relaxed read. The fence orders former holders' reads before the writes that follow.
#if defined(ZR_THREAD_SANITIZER)
  std::shared_ptr<T>(holder).reset();  // the same by the count itself: the sanitizer does not see fences
#else
  std::atomic_thread_fence(std::memory_order_acquire);
#endif
  return *holder;
}

}  // namespace

Value Object::plainValue() const {
  return description();
}

Value plainValueOf(const Object& object) {
  constexpr int kMaxSteps = 8;
  Value value = object.plainValue();
  for (int step = 0; value.kind() == Value::Kind::Object; ++step) {
    if (step == kMaxSteps) return {};
    value = value.asObject()->plainValue();
  }
  return value;
}

Value::Value(const char* text) {
  if (text) *this = Value(std::string_view(text));
}
Value::Value(std::string text) : storage_(std::in_place_type<std::string>, std::move(text)) {
  auto& held = *std::get_if<std::string>(&storage_);
  if (!isValidUtf8(held)) held = validUtf8(std::move(held));
}
Value::Value(std::string_view text) : Value(std::string(text)) {}
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
  if (!shared) throw ValueError("no array in " + description());
  return uniqueCopy(*shared);
}
Dictionary& Value::mutableDictionary() {
  auto* shared = std::get_if<std::shared_ptr<Dictionary>>(&storage_);
  if (!shared) throw ValueError("no dictionary in " + description());
  return uniqueCopy(*shared);
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

const Value* Dictionary::findNonNull(std::string_view key) const noexcept {
  const Value* value = find(key);
  return value && !value->isNull() ? value : nullptr;
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
  if (!isValidUtf8(key)) return set(validUtf8(std::string(key)), std::move(value));
  const std::size_t index = indexOf(key);
  if (index != kNotFound) {
    entries_[index].value = std::move(value);
    return;
  }
  if (entries_.empty() && entries_.capacity() == 0) entries_.reserve(4);
  entries_.push_back({std::string(key), std::move(value)});
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

}  // namespace zorvane::platform
