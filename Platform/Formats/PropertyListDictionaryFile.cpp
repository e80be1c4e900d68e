#include "Platform/Formats/PropertyListDictionaryFile.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Formats/BinaryEncoder.h"
#include "Platform/Formats/LazyPropertyListSource.h"
#include "Platform/Text/NumberText.h"
#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

// The layout of files written here. Offsets of eight bytes and references of four always suffice, so they need no
// change when objects are added. The root is object 0 and comes last, before the offset table: only it is written anew.
constexpr std::size_t kOffsetSize = 8;
constexpr std::size_t kReferenceSize = 4;
constexpr std::size_t kRootIndex = 0;

// The object indices of an entry's key and value.
struct Pair {
  std::size_t key;
  std::size_t value;
};

BinaryObjects emptyObjects() {
  BinaryObjects objects;
  objects.bytes.append(std::string("bplist00"));
  objects.offsetSize = kOffsetSize;
  objects.referenceSize = kReferenceSize;
  objects.firstIndex = kRootIndex + 1;
  objects.count = kRootIndex + 1;
  return objects;
}

// The root's pairs with a valid key; of a repeated key the first. False when the root is no dictionary or too large.
bool readPairs(const BinaryObjects& objects, const BinaryObject& root, std::vector<Pair>& pairs) {
  DecodingAllowance allowance;
  if (root.kind != BinaryObject::Kind::Dictionary || !allowance.take(root.count, 0)) return false;
  std::unordered_set<std::size_t> indices;
  std::unordered_set<std::string> texts;
  std::string storage;
  for (std::size_t i = 0; i < root.count; ++i) {
    const Pair pair{objects.reference(root, i), objects.reference(root, root.count + i)};
    BinaryObject key;
    if (!indices.insert(pair.key).second || !objects.read(pair.key, key) || !key.isText()) continue;
    if (!allowance.take(0, key.content.size())) return false;
    if (texts.emplace(textOfObject(key, storage)).second) pairs.push_back(pair);
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

  // The entries of a binary file. For XML they are in entries from the start.
  std::shared_ptr<const LazyPropertyListSource> source;
  std::vector<Pair> pairs;
  bool isOwnLayout = false;

  mutable std::once_flag entriesMade;
  mutable std::vector<Entry> entries;

  // The source's scalars, or null. Moved to the next snapshot, so that adding entries one after the other finds them
  // once.
  mutable Mutex mutex;
  mutable std::unique_ptr<ScalarTable> scalars ZR_GUARDED_BY(mutex);

  std::unique_ptr<ScalarTable> takeScalars() const {
    const MutexLock lock(mutex);
    return std::move(scalars);
  }
};

// Adds entries to a snapshot in the own layout.
class PropertyListDictionarySnapshot::Builder {
 public:
  Builder() : objects_(emptyObjects()), scalars_(std::make_unique<ScalarTable>()) {}
  // Check isValid() before use.
  explicit Builder(const State& state)
      : objects_(state.source->objects), pairs_(state.pairs), scalars_(state.takeScalars()) {
    if (!scalars_) findScalars();
  }

  // False when an object of the file is malformed: its bytes cannot be copied.
  bool isValid() const { return scalars_ != nullptr; }

  void add(std::string_view key, const Value& value) {
    BinaryEncoder encoder(objects_, *scalars_);
    const std::string validKey = validUtf8(std::string(key));
    const std::size_t keyIndex = encoder.encodeText(validKey);
    const std::size_t valueIndex = encoder.encode(value, 1);
    if (valuesOfKeys_.empty()) {
      for (std::size_t i = 0; i < pairs_.size(); ++i) valuesOfKeys_.emplace(pairs_[i].key, i);
    }
    const auto [known, isNew] = valuesOfKeys_.emplace(keyIndex, pairs_.size());
    if (isNew) {
      pairs_.push_back({keyIndex, valueIndex});
    } else {
      pairs_[known->second].value = valueIndex;
    }
    std::string offsets;
    offsets.reserve(encoder.offsets().size() * kOffsetSize);
    for (const std::uint64_t offset : encoder.offsets()) appendBigEndian(offset, kOffsetSize, offsets);
    objects_.bytes.append(encoder.bytes());
    objects_.offsets.append(std::move(offsets));
    objects_.count += encoder.offsets().size();
  }

  std::shared_ptr<const State> finish() {
    auto state = std::make_shared<State>();
    const std::size_t rootStart = objects_.bytes.size();
    appendMarker(0xD0, pairs_.size(), state->root);
    for (const Pair& pair : pairs_) appendBigEndian(pair.key, kReferenceSize, state->root);
    for (const Pair& pair : pairs_) appendBigEndian(pair.value, kReferenceSize, state->root);
    const std::size_t tableStart = rootStart + state->root.size();
    appendBigEndian(rootStart, kOffsetSize, state->root);
    appendTrailer(kOffsetSize, kReferenceSize, objects_.count, kRootIndex, tableStart, state->trailer);
    state->source = std::make_shared<const LazyPropertyListSource>(std::move(objects_));
    state->pairs = std::move(pairs_);
    state->isOwnLayout = true;
    {
      const MutexLock lock(state->mutex);
      state->scalars = std::move(scalars_);
    }
    for (const auto& chunk : state->source->objects.bytes.chunks()) state->pieces.push_back(chunk.bytes);
    state->pieces.push_back(state->root);
    for (const auto& chunk : state->source->objects.offsets.chunks()) state->pieces.push_back(chunk.bytes);
    state->pieces.push_back(state->trailer);
    return state;
  }

 private:
  void findScalars() {
    auto scalars = std::make_unique<ScalarTable>();
    for (std::size_t index = objects_.firstIndex; index < objects_.count; ++index) {
      BinaryObject object;
      if (!objects_.read(index, object) || index >= ScalarTable::kNotFound) return;
      if (object.isContainer()) continue;
      const std::string_view encoded = objects_.bytes.from(object.position).substr(0, object.size);
      scalars->insert(ScalarTable::hashOf(encoded), static_cast<std::uint32_t>(index));
    }
    scalars_ = std::move(scalars);
  }

  BinaryObjects objects_;
  std::vector<Pair> pairs_;
  std::unordered_map<std::size_t, std::size_t> valuesOfKeys_;
  std::unique_ptr<ScalarTable> scalars_;
};

PropertyListDictionarySnapshot::PropertyListDictionarySnapshot() : state_(Builder().finish()) {}

Result<PropertyListDictionarySnapshot> PropertyListDictionarySnapshot::open(std::string bytes) {
  const auto state = std::make_shared<State>();
  state->opened = std::make_shared<const std::string>(std::move(bytes));
  state->pieces.push_back(*state->opened);
  PropertyListDictionarySnapshot snapshot{std::shared_ptr<const State>(state)};
  if (!state->opened->starts_with("bplist")) {
    const auto parsed = parsePropertyList(*state->opened);
    if (!parsed) return parsed.error();
    const Dictionary* root = parsed.value().asDictionary();
    if (!root) return Error{"no dictionary stands at the root of the property list at byte 0", 0};
    for (const auto& [key, value] : *root) state->entries.push_back({key, LazyPropertyListValue(value)});
    return snapshot;
  }
  auto parsed = BinaryObjects::open(*state->opened, state->opened);
  if (!parsed) return parsed.error();
  BinaryObjects& objects = parsed.value();
  BinaryObject root;
  if (!objects.read(objects.top, root) || !readPairs(objects, root, state->pairs)) {
    return Error{"no sound dictionary stands at the root of the binary property list, object " +
                     textOfInteger(static_cast<std::int64_t>(objects.top)),
                 0};
  }
  const std::size_t tableStart = objects.bytes.size();
  state->isOwnLayout = objects.offsetSize == kOffsetSize && objects.referenceSize == kReferenceSize &&
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
  state->source = std::make_shared<const LazyPropertyListSource>(std::move(objects));
  return snapshot;
}

const std::vector<PropertyListDictionarySnapshot::Entry>& PropertyListDictionarySnapshot::entries() const {
  const State& state = *state_;
  std::call_once(state.entriesMade, [&state] {
    state.entries.reserve(state.entries.size() + state.pairs.size());
    std::string storage;
    for (const Pair& pair : state.pairs) {
      BinaryObject key;
      state.source->objects.read(pair.key, key);
      state.entries.push_back(
          {std::string(textOfObject(key, storage)), LazyPropertyListValue(state.source, pair.value)});
    }
  });
  return state.entries;
}

PropertyListDictionarySnapshot PropertyListDictionarySnapshot::withEntry(std::string_view key,
                                                                         const Value& value) const {
  if (value.isNil()) return *this;
  if (state_->isOwnLayout) {
    Builder builder(*state_);
    if (builder.isValid()) {
      builder.add(key, value);
      return PropertyListDictionarySnapshot(builder.finish());
    }
  }
  Builder builder;
  for (const Entry& entry : entries()) {
    const Value decoded = entry.value.decode();
    if (!decoded.isNil()) builder.add(entry.key, decoded);
  }
  builder.add(key, value);
  return PropertyListDictionarySnapshot(builder.finish());
}

PropertyListDictionarySnapshot PropertyListDictionarySnapshot::ofEntries(std::span<const Entry> entries) {
  Builder builder;
  for (const Entry& entry : entries) {
    const Value value = entry.value.decode();
    if (!value.isNil()) builder.add(entry.key, value);
  }
  return PropertyListDictionarySnapshot(builder.finish());
}

std::vector<std::string_view> PropertyListDictionarySnapshot::pieces() const {
  return state_->pieces;
}

}  // namespace zorvane::platform
