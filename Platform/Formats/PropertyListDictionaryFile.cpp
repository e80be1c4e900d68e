#include "Platform/Formats/PropertyListDictionaryFile.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Formats/BinaryEncoder.h"
#include "Platform/Formats/XMLPropertyList.h"
#include "Platform/Text/NumberText.h"
#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

// The layout of files written here. Offsets and references keep their size when objects are added. The root is object 0
// and comes last, before the offset table: only it is written anew.
constexpr std::size_t kOffsetSize = 4;
constexpr std::size_t kReferenceSize = 4;
constexpr std::size_t kMaximumSize = 0xFFFFFFFF;
constexpr std::size_t kRootIndex = 0;

// The object indices of an entry's key and value.
struct Pair {
  std::size_t key;
  std::size_t value;
  bool isDecodable;
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
  DecodableObjects decodable(objects);
  std::unordered_set<std::size_t> indices;
  std::unordered_set<std::string> texts;
  std::string storage;
  for (std::size_t i = 0; i < root.count; ++i) {
    Pair pair{objects.reference(root, i), objects.reference(root, root.count + i), false};
    BinaryObject key;
    if (!indices.insert(pair.key).second || !objects.read(pair.key, key) || !key.isText()) continue;
    if (!allowance.take(0, key.content.size())) return false;
    if (!texts.emplace(textOfObject(key, storage)).second) continue;
    pair.isDecodable = decodable.contains(pair.value);
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
  explicit Builder(const State& state) : objects_(*state.source), pairs_(state.pairs), scalars_(state.takeScalars()) {
    if (!scalars_) findScalars();
  }

  // False when an object of the file is malformed: its bytes cannot be copied.
  bool isValid() const { return scalars_ != nullptr; }

  void add(std::string_view key, const Value& value) {
    BinaryEncoder encoder(objects_, *scalars_);
    DecodingAllowance allowance;
    take(encoder, key, encoder.encode(value, 1), allowance.takeEncoded(value, 1));
  }

  // Copies an entry of another snapshot. Entries of one snapshot should follow one another.
  void copy(const Entry& entry) {
    const BinaryObjects& source = *entry.value.source_;
    if (copiedFrom_ != &source) {
      for (BinaryEncoder::Copies& copies : copies_) copies.assign(source.count, 0);
      copiedFrom_ = &source;
    }
    BinaryEncoder encoder(objects_, *scalars_);
    const bool isDecodable = entry.value.isDecodable_;
    take(encoder, entry.key, encoder.copy(source, entry.value.object_, 1, copies_[isDecodable ? 1 : 0]), isDecodable);
  }

  std::shared_ptr<const State> finish() {
    auto state = std::make_shared<State>();
    const std::size_t rootStart = objects_.bytes.size();
    appendMarker(0xD0, pairs_.size(), state->root);
    for (const Pair& pair : pairs_) appendBigEndian(pair.key, kReferenceSize, state->root);
    for (const Pair& pair : pairs_) appendBigEndian(pair.value, kReferenceSize, state->root);
    const std::size_t tableStart = rootStart + state->root.size();
    if (tableStart > kMaximumSize) throw std::length_error("too large a property list");
    appendBigEndian(rootStart, kOffsetSize, state->root);
    appendTrailer(kOffsetSize, kReferenceSize, objects_.count, kRootIndex, tableStart, state->trailer);
    state->source = std::make_shared<const BinaryObjects>(std::move(objects_));
    state->pairs = std::move(pairs_);
    state->isOwnLayout = true;
    {
      const MutexLock lock(state->mutex);
      state->scalars = std::move(scalars_);
    }
    for (const auto& chunk : state->source->bytes.chunks()) state->pieces.push_back(chunk.bytes);
    state->pieces.push_back(state->root);
    for (const auto& chunk : state->source->offsets.chunks()) state->pieces.push_back(chunk.bytes);
    state->pieces.push_back(state->trailer);
    return state;
  }

 private:
  // Takes over what was encoded, with the entry's key.
  void take(BinaryEncoder& encoder, std::string_view key, std::size_t valueIndex, bool isDecodable) {
    const std::size_t keyIndex = encoder.encodeText(validUtf8(std::string(key)));
    if (valuesOfKeys_.empty()) {
      for (std::size_t i = 0; i < pairs_.size(); ++i) valuesOfKeys_.emplace(pairs_[i].key, i);
    }
    const auto [known, isNew] = valuesOfKeys_.emplace(keyIndex, pairs_.size());
    if (isNew) {
      pairs_.push_back({keyIndex, valueIndex, isDecodable});
    } else {
      pairs_[known->second] = {keyIndex, valueIndex, isDecodable};
    }
    std::string offsets;
    offsets.reserve(encoder.offsets().size() * kOffsetSize);
    for (const std::uint64_t offset : encoder.offsets()) appendBigEndian(offset, kOffsetSize, offsets);
    objects_.bytes.append(encoder.bytes());
    objects_.offsets.append(std::move(offsets));
    objects_.count += encoder.offsets().size();
  }

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
  const BinaryObjects* copiedFrom_ = nullptr;
  BinaryEncoder::Copies copies_[2];  // of entries that cannot be decoded, and of others
};

PropertyListDictionarySnapshot::PropertyListDictionarySnapshot() : state_(Builder().finish()) {}

Result<PropertyListDictionarySnapshot> PropertyListDictionarySnapshot::open(std::string bytes) {
  if (!bytes.starts_with("bplist")) {
    Builder builder;
    const auto parsed =
        parseXMLPropertyList(bytes, [&](std::string_view key, const Value& value) { builder.add(key, value); });
    if (!parsed) return parsed.error();
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
  state->source = std::make_shared<const BinaryObjects>(std::move(objects));
  return PropertyListDictionarySnapshot(std::shared_ptr<const State>(state));
}

const std::vector<PropertyListDictionarySnapshot::Entry>& PropertyListDictionarySnapshot::entries() const {
  const State& state = *state_;
  std::call_once(state.entriesMade, [&state] {
    state.entries.reserve(state.pairs.size());
    std::string storage;
    for (const Pair& pair : state.pairs) {
      BinaryObject key;
      state.source->read(pair.key, key);
      state.entries.push_back(
          {std::string(textOfObject(key, storage)), LazyPropertyListValue(state.source, pair.value, pair.isDecodable)});
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
  for (const Entry& entry : entries()) builder.copy(entry);
  builder.add(key, value);
  return PropertyListDictionarySnapshot(builder.finish());
}

PropertyListDictionarySnapshot PropertyListDictionarySnapshot::ofEntries(std::span<const Entry> entries) {
  Builder builder;
  for (const Entry& entry : entries) builder.copy(entry);
  return PropertyListDictionarySnapshot(builder.finish());
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
