#include "Platform/Formats/PropertyListDictionaryFile.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Formats/BinaryEncoder.h"
#include "Platform/Formats/XMLPropertyList.h"
#include "Platform/Text/NumberText.h"

namespace zorvane::platform {
namespace {

// The layout of files written here. Offsets and references keep their size when objects are added. The root is object 0
// and comes last, before the offset table: only it is written anew. References of two bytes, half of a small file, grow
// to four when there are too many objects; then the file is written anew.
constexpr std::size_t kOffsetSize = 4;
constexpr std::size_t kReferenceSizes[] = {2, 4};
constexpr std::size_t kMaximumSize = 0xFFFFFFFF;
constexpr std::size_t kRootIndex = 0;

// An entry: the object indices of its key and its value.
struct Pair {
  std::size_t key;
  std::size_t value;
  std::uint32_t keyHash;
  std::optional<bool> isDecodable;  // empty until somebody asks
};

std::uint32_t hashOf(std::string_view key) {
  return static_cast<std::uint32_t>(std::hash<std::string_view>{}(key));
}

BinaryObjects emptyObjects(std::size_t referenceSize) {
  BinaryObjects objects;
  objects.bytes.append("bplist00");
  objects.offsetSize = kOffsetSize;
  objects.referenceSize = referenceSize;
  objects.firstIndex = kRootIndex + 1;
  objects.count = kRootIndex + 1;
  return objects;
}

// The root's pairs with a valid key; of a repeated key the first. False when the root is no dictionary or too large.
bool readPairs(const BinaryObjects& objects, const BinaryObject& root, std::vector<Pair>& pairs) {
  DecodingAllowance allowance;
  if (root.kind != BinaryObject::Kind::Dictionary || !allowance.take(root.count, 0)) return false;
  Dictionary known;
  std::string storage;
  for (std::size_t i = 0; i < root.count; ++i) {
    Pair pair{objects.reference(root, i), objects.reference(root, root.count + i), 0, std::nullopt};
    BinaryObject key;
    if (!objects.read(pair.key, key) || !key.isText()) continue;
    if (!allowance.take(0, key.content.size())) return false;
    const std::string_view text = textOfObject(key, storage);
    if (known.contains(text)) continue;
    known.set(text, null);
    pair.keyHash = hashOf(text);
    pairs.push_back(pair);
  }
  return true;
}

}  // namespace

struct PropertyListDictionarySnapshot::State {
  // The file's content: views of the source's chunks and of the strings below.
  std::vector<std::string_view> pieces;
  std::shared_ptr<const std::string> opened;
  std::string root;
  std::string trailer;

  std::shared_ptr<const BinaryObjects> source;
  bool isOwnLayout = false;

  mutable Mutex mutex;
  mutable std::vector<Pair> pairs ZR_GUARDED_BY(mutex);
  // Made at the first use, under the mutex; then constant.
  mutable std::vector<Entry> entries;
  // Moved to the next snapshot, so that entries which are added one after the other share their scalars.
  mutable std::unique_ptr<ScalarTable> scalars ZR_GUARDED_BY(mutex);

  std::vector<Pair> copyOfPairs() const {
    const MutexLock lock(mutex);
    return pairs;
  }
  std::unique_ptr<ScalarTable> takeScalars() const {
    const MutexLock lock(mutex);
    return std::move(scalars);
  }
};

// Adds entries to a snapshot in the own layout.
class PropertyListDictionarySnapshot::Builder {
 public:
  explicit Builder(std::size_t referenceSize) : objects_(emptyObjects(referenceSize)), encoder_(objects_) {}
  explicit Builder(const State& state)
      : objects_(*state.source), pairs_(state.copyOfPairs()), encoder_(objects_, state.takeScalars()) {}

  // Replaces the entry at the position, or adds one. When false, the value is too large, and the builder is of no use.
  bool set(std::size_t position, std::string_view key, const Value& value) {
    encoder_.beginEntry();
    const std::uint32_t index = encoder_.encode(value, 1);
    if (encoder_.isDecodable()) put(position, key, index, true);
    return encoder_.isDecodable();
  }

  // The same for each by its key.
  bool setAll(const Dictionary& entries) {
    encoder_.commit();  // find() reads the keys
    for (const auto& [key, value] : entries) {
      if (!set(find(key), key, value)) return false;
    }
    return true;
  }

  // Copies an entry of another snapshot. Entries of one snapshot should follow one another.
  void copy(const Entry& entry) {
    const BinaryObjects& source = *entry.value.source_;
    if (copiedFrom_ != &source) {
      for (BinaryEncoder::Copies& copies : copies_) copies.assign(source.count, 0);
      copiedFrom_ = &source;
    }
    const bool isDecodable = entry.value.isDecodable_;
    const std::uint32_t index = encoder_.copy(source, entry.value.object_, 1, copies_[isDecodable ? 1 : 0]);
    put(pairs_.size(), entry.key, index, isDecodable);
  }

  // When false, the builder is of no use.
  bool fits() const { return encoder_.fits(); }

  std::shared_ptr<const State> finish() {
    encoder_.commit();
    auto state = std::make_shared<State>();
    const std::size_t rootStart = objects_.bytes.size();
    std::vector<std::uint32_t> references(2 * pairs_.size());
    for (std::size_t i = 0; i < pairs_.size(); ++i) {
      references[i] = static_cast<std::uint32_t>(pairs_[i].key);
      references[pairs_.size() + i] = static_cast<std::uint32_t>(pairs_[i].value);
    }
    appendMarker(0xD0, pairs_.size(), state->root);
    appendBigEndian(references, objects_.referenceSize, state->root);
    const std::size_t tableStart = rootStart + state->root.size();
    if (tableStart > kMaximumSize) throw std::length_error("too large a property list");
    appendBigEndian(rootStart, kOffsetSize, state->root);
    appendTrailer(kOffsetSize, objects_.referenceSize, objects_.count, kRootIndex, tableStart, state->trailer);
    state->source = std::make_shared<const BinaryObjects>(std::move(objects_));
    state->isOwnLayout = true;
    {
      const MutexLock lock(state->mutex);
      state->pairs = std::move(pairs_);
      state->scalars = encoder_.takeTable();
    }
    for (const auto& chunk : state->source->bytes.chunks()) state->pieces.push_back(chunk.bytes);
    state->pieces.push_back(state->root);
    for (const auto& chunk : state->source->offsets.chunks()) state->pieces.push_back(chunk.bytes);
    state->pieces.push_back(state->trailer);
    return state;
  }

 private:
  // The position of the entry, or the number of entries.
  std::size_t find(std::string_view key) const {
    const std::uint32_t hash = hashOf(key);
    std::string storage;
    BinaryObject object;
    std::size_t i = 0;
    for (; i < pairs_.size(); ++i) {
      if (pairs_[i].keyHash == hash && objects_.read(pairs_[i].key, object) && textOfObject(object, storage) == key) {
        break;
      }
    }
    return i;
  }

  void put(std::size_t position, std::string_view key, std::uint32_t value, bool isDecodable) {
    constexpr std::size_t kCommitted = std::size_t{256} << 10;
    if (position == pairs_.size()) pairs_.emplace_back();
    pairs_[position] = {encoder_.encodeText(key), value, hashOf(key), isDecodable};
    if (encoder_.bytes().size() > kCommitted) encoder_.commit();
  }

  BinaryObjects objects_;
  std::vector<Pair> pairs_;
  BinaryEncoder encoder_;
  const BinaryObjects* copiedFrom_ = nullptr;
  BinaryEncoder::Copies copies_[2];  // of entries that cannot be decoded, and of others
};

PropertyListDictionarySnapshot::PropertyListDictionarySnapshot() {
  static const auto* const empty = new std::shared_ptr<const State>(Builder(kReferenceSizes[0]).finish());
  state_ = *empty;
}

Result<PropertyListDictionarySnapshot> PropertyListDictionarySnapshot::open(std::string bytes) {
  if (!bytes.starts_with("bplist")) {
    Builder builder(kReferenceSizes[1]);
    Dictionary positions;
    bool isDecodable = true;
    const auto parsed = parseXMLPropertyList(bytes, [&](std::string_view key, const Value& value) {
      const Value* known = positions.find(key);
      const std::size_t position = known ? static_cast<std::size_t>(known->integerValue()) : positions.size();
      isDecodable = isDecodable && builder.set(position, key, value);
      if (!known) positions.set(key, position);
    });
    if (!parsed) return parsed.error();
    if (!isDecodable) return Error{"an entry of the property list is too large", 0};
    if (!parsed.value().isDictionary()) {
      return Error{"no dictionary stands at the root of the property list at byte 0", 0};
    }
    return PropertyListDictionarySnapshot(builder.finish());
  }
  const auto state = std::make_shared<State>();
  state->opened = std::make_shared<const std::string>(std::move(bytes));
  state->pieces.push_back(*state->opened);
  auto parsed = BinaryObjects::open(*state->opened, state->opened);
  if (!parsed) return parsed.error();
  BinaryObjects& objects = parsed.value();
  BinaryObject root;
  std::vector<Pair> pairs;
  if (!objects.read(objects.top, root) || !readPairs(objects, root, pairs)) {
    return Error{"no sound dictionary stands at the root of the binary property list, object " +
                     textOfInteger(static_cast<std::int64_t>(objects.top)),
                 0};
  }
  const std::size_t tableStart = objects.bytes.size();
  state->isOwnLayout = objects.offsetSize == kOffsetSize &&
                       std::count(std::begin(kReferenceSizes), std::end(kReferenceSizes), objects.referenceSize) != 0 &&
                       objects.top == kRootIndex && root.position + root.size == tableStart;
  if (state->isOwnLayout) {
    // Without the root: each snapshot has its own.
    const std::string_view file = *state->opened;
    const std::size_t firstOffset = tableStart + kOffsetSize;
    BinaryObjects own = objects;
    own.bytes = ChunkedBytes();
    own.bytes.append(file.substr(0, root.position), state->opened);
    own.offsets = ChunkedBytes();
    own.offsets.append(file.substr(firstOffset, (objects.count - 1) * kOffsetSize), state->opened);
    own.firstIndex = kRootIndex + 1;
    objects = std::move(own);
  }
  state->source = std::make_shared<const BinaryObjects>(std::move(objects));
  const MutexLock lock(state->mutex);
  state->pairs = std::move(pairs);
  return PropertyListDictionarySnapshot(std::shared_ptr<const State>(state));
}

std::shared_ptr<const std::vector<PropertyListDictionarySnapshot::Entry>>
PropertyListDictionarySnapshot::sharedEntries() const {
  const State& state = *state_;
  std::shared_ptr<const std::vector<Entry>> shared(state_, &state.entries);
  const MutexLock lock(state.mutex);
  if (state.entries.size() == state.pairs.size()) return shared;
  state.entries.clear();
  state.entries.reserve(state.pairs.size());
  std::optional<DecodableObjects> decodable;
  std::string storage;
  for (Pair& pair : state.pairs) {
    if (!pair.isDecodable) {
      if (!decodable) decodable.emplace(*state.source);
      pair.isDecodable = decodable->contains(pair.value);
    }
    BinaryObject key;
    state.source->read(pair.key, key);
    state.entries.push_back(
        {std::string(textOfObject(key, storage)), LazyPropertyListValue(state.source, pair.value, *pair.isDecodable)});
  }
  return shared;
}

std::optional<PropertyListDictionarySnapshot> PropertyListDictionarySnapshot::withEntries(
    const Dictionary& added) const {
  if (added.empty()) return *this;
  if (state_->isOwnLayout) {
    Builder builder(*state_);
    if (!builder.setAll(added)) return std::nullopt;
    if (builder.fits()) return PropertyListDictionarySnapshot(builder.finish());
  }
  return build(entries(), added);
}

std::optional<PropertyListDictionarySnapshot> PropertyListDictionarySnapshot::build(std::span<const Entry> entries,
                                                                                    const Dictionary& added) {
  for (const std::size_t referenceSize : kReferenceSizes) {
    Builder builder(referenceSize);
    for (auto entry = entries.begin(); entry != entries.end() && builder.fits(); ++entry) builder.copy(*entry);
    if (!builder.setAll(added)) break;
    if (builder.fits()) return PropertyListDictionarySnapshot(builder.finish());
  }
  return std::nullopt;
}

PropertyListDictionarySnapshot PropertyListDictionarySnapshot::ofEntries(std::span<const Entry> entries) {
  return *build(entries, {});
}

std::size_t countForEntry(const Array& elements, std::size_t first, const Value& rest) {
  constexpr int kElementDepth = 3;  // in the root, the entry and the array
  DecodingAllowance allowance;
  std::size_t end = first;
  if (!allowance.takeEncoded(rest, 1) || !allowance.take(16, 1024)) return 0;
  while (end < elements.size() && allowance.take(1, 0) && allowance.takeEncoded(elements[end], kElementDepth)) ++end;
  return end - first;
}

std::vector<std::string_view> PropertyListDictionarySnapshot::pieces() const {
  return state_->pieces;
}

}  // namespace zorvane::platform
