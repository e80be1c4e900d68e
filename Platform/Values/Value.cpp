#include "Platform/Values/Value.h"

#include <atomic>
#include <cstring>
#include <functional>
#include <new>
#include <utility>
#include <vector>

#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

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
thread_local std::vector<std::shared_ptr<const void>>* destructionQueue = nullptr;

template <typename T>
T& uniqueCopy(std::shared_ptr<const void>& holder) {
  // Only the last holder writes in place. No holder can join now: that takes a copy of this Value, which its owner does
  // not make while writing.
  if (holder.use_count() != 1) {
    auto copy = std::make_shared<T>(*static_cast<const T*>(holder.get()));
    holder = copy;
    return *copy;
  }
  // use_count() is a relaxed read. The fence orders former holders' reads before the writes that follow.
#if defined(ZR_THREAD_SANITIZER)
  std::shared_ptr<const void>(holder).reset();  // the same by the count itself: the sanitizer does not see fences
#else
  std::atomic_thread_fence(std::memory_order_acquire);
#endif
  return *const_cast<T*>(static_cast<const T*>(holder.get()));
}

}  // namespace

Value plainValueOf(const Object& object) {
  constexpr int kMaxSteps = 8;
  Value value = object.plainValue();
  for (int step = 0; value.kind() == Value::Kind::Object; ++step) {
    if (step == kMaxSteps) return {};
    value = value.asObject()->plainValue();
  }
  return value;
}

Value::Value(Data data) {
  share(Kind::Data, std::make_shared<const Data>(std::move(data)));
}
Value::Value(URL url) {
  share(Kind::URL, std::make_shared<const URL>(URL{validUtf8(std::move(url.absoluteString))}));
}
Value::Value(Array array) {
  share(Kind::Array, std::make_shared<Array>(std::move(array)));
}
Value::Value(Dictionary dictionary) {
  share(Kind::Dictionary, std::make_shared<Dictionary>(std::move(dictionary)));
}

// A content that needs no destruction is copied as bytes.
Value::Value(const Value& other) {
  if (other.kind_ == Kind::String) {
    new (&text_) Text(other.text_);
  } else if (isManaged(other.kind_)) {
    new (&shared_) std::shared_ptr<const void>(other.shared_);
  } else {
    std::memcpy(&integer_, &other.integer_, sizeof integer_);
  }
  kind_ = other.kind_;
}

void Value::destroy() noexcept {
  kind_ = Kind::Nil;
  std::shared_ptr<const void> content = std::move(shared_);
  shared_.~shared_ptr();
  if (destructionDepth < kMaxDestructionDepth) {
    ++destructionDepth;
    content.reset();
    --destructionDepth;
  } else if (destructionQueue) {
    try {
      destructionQueue->push_back(std::move(content));
    } catch (const std::bad_alloc&) {
      content.reset();  // deeper on the stack
    }
  } else {
    std::vector<std::shared_ptr<const void>> queue;
    destructionQueue = &queue;
    content.reset();
    while (!queue.empty()) {
      content = std::move(queue.back());
      queue.pop_back();
      content.reset();
    }
    destructionQueue = nullptr;
  }
}

std::shared_ptr<const Object> Value::asObject() const noexcept {
  if (kind_ != Kind::Object) return nullptr;
  return std::static_pointer_cast<const Object>(shared_);
}

Array& Value::mutableArray() {
  if (!isArray()) throw ValueError("no array in " + description());
  return uniqueCopy<Array>(shared_);
}
Dictionary& Value::mutableDictionary() {
  if (!isDictionary()) throw ValueError("no dictionary in " + description());
  return uniqueCopy<Dictionary>(shared_);
}

std::size_t Dictionary::indexOf(std::string_view key) const noexcept {
  if (slots_.empty()) {
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      const Text& held = entries_[i].key;
      if (held.size() == key.size() && held == key) return i;  // the sizes first: == is a call
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
  for (std::size_t i = 0; i < entries_.size(); ++i) addToIndex(i);
}

void Dictionary::addToIndex(std::size_t entry) {
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = std::hash<std::string_view>{}(entries_[entry].key) & mask;
  while (slots_[slot] != 0) slot = (slot + 1) & mask;
  slots_[slot] = static_cast<std::uint32_t>(entry + 1);
}

const Value* Dictionary::find(std::string_view key) const noexcept {
  const std::size_t index = indexOf(key);
  return index == kNotFound ? nullptr : &entries_[index].value;
}

const Value* Dictionary::findNonNull(std::string_view key) const noexcept {
  const Value* value = find(key);
  return value && !value->isNull() ? value : nullptr;
}

Value Dictionary::objectForKey(std::string_view key) const {
  const Value* value = find(key);
  return value ? *value : Value();
}

void Dictionary::set(std::string_view key, Value value) {
  if (value.isNil()) throw ValueError("nil for the key " + std::string(key));
  put(key, std::move(value));
}

void Dictionary::put(std::string_view key, Value&& value) {
  if (!isValidUtf8(key)) return put(validUtf8(std::string(key)), std::move(value));
  const std::size_t index = indexOf(key);
  if (index != kNotFound) {
    entries_[index].value = std::move(value);
    return;
  }
  if (entries_.empty() && entries_.capacity() == 0) entries_.reserve(4);
  entries_.emplace_back(key, std::move(value));
  if (entries_.size() <= kIndexedSize) return;
  if (entries_.size() * 2 > slots_.size()) {
    rebuildIndex();
  } else {
    addToIndex(entries_.size() - 1);
  }
}

void Dictionary::setObjectNilHandledForKey(Value value, std::string_view key) {
  if (!value.isNil()) put(key, std::move(value));
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
