#include "ZRAnalytics/Journal/ZRJournalFormat.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <unordered_map>
#include <utility>

#include "Platform/Formats/PropertyList.h"

namespace zorvane::journal {
namespace {

std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) {
  return (std::rotl(hash, 23) ^ word) * 0x9E3779B97F4A7C15u;
}

std::uint64_t wordAt(const char* bytes) {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

std::uint64_t mixed(std::uint64_t hash, std::string_view bytes) {
  constexpr std::size_t kWord = sizeof(std::uint64_t);
  const char* const begin = bytes.data();
  const std::size_t size = bytes.size();
  // Two words at a time, which the processor overlaps.
  std::uint64_t other = size;
  if (size >= kWord) {
    for (std::size_t at = 0; at + 2 * kWord < size; at += 2 * kWord) {
      hash = mixed(hash, wordAt(begin + at));
      other = mixed(other, wordAt(begin + at + kWord));
    }
    // The last two may share bytes with each other or with earlier ones.
    hash = mixed(hash, wordAt(begin + size - kWord));
    other = mixed(other, wordAt(begin + (size >= 2 * kWord ? size - 2 * kWord : 0)));
  } else {
    for (const char byte : bytes) hash = mixed(hash, static_cast<unsigned char>(byte));
  }
  hash = mixed(hash, other);
  return hash ^ (hash >> 32);
}

template <typename Number>
bool takeNumber(std::string_view& bytes, Number& number) {
  if (bytes.size() < sizeof number) return false;
  std::memcpy(&number, bytes.data(), sizeof number);
  bytes.remove_prefix(sizeof number);
  return true;
}

bool takeBytes(std::string_view& bytes, std::string_view& taken) {
  std::uint32_t size = 0;
  if (!takeNumber(bytes, size) || bytes.size() < size) return false;
  taken = bytes.substr(0, size);
  bytes.remove_prefix(size);
  return true;
}

// Room is made for so many entries of a dictionary at once, whatever number it claims to have.
constexpr std::uint32_t kUsualEntries = 32;

char* putTag(char* at, char tag) {
  *at = tag;
  return at + 1;
}

template <typename Number>
char* putNumber(char* at, Number number) {
  std::memcpy(at, &number, sizeof number);
  return at + sizeof number;
}

// Behind its length. Inline, as is putUsual(), because an event calls it for each name and text.
inline char* putText(char* at, const Text& text) {
  return text.copyTo(putNumber(at, static_cast<std::uint32_t>(text.size())));
}

std::size_t roomForText(const Text& text) {
  return sizeof(std::uint32_t) + text.size() + Text::kCopyRoom;
}

// What putUsual() writes at most.
std::size_t roomForUsual(const Value& value) {
  const Text* const text = value.asString();
  return 1 + (text ? roomForText(*text) : sizeof(std::uint64_t));
}

// The end of the value; null for a kind that is rare in events.
inline char* putUsual(char* at, const Value& value) {
  using Kind = Value::Kind;
  switch (value.kind()) {
    case Kind::Nil:
      return putTag(at, '0');
    case Kind::Null:
      return putTag(at, 'n');
    case Kind::Bool:
      return putTag(at, *value.asBool() ? 't' : 'f');
    case Kind::Integer:
      return putNumber(putTag(at, 'i'), *value.asInteger());
    case Kind::Double:
      return putNumber(putTag(at, 'd'), *value.asDouble());
    case Kind::Date:
      return putNumber(putTag(at, 'D'), value.asDate()->secondsSince1970);
    case Kind::String:
      return putText(putTag(at, 's'), *value.asString());
    default:
      return nullptr;
  }
}

void appendRare(const Value& value, int depth, Bytes& out);

void append(const Value& value, int depth, Bytes& out) {
  const char* const end = putUsual(out.room(roomForUsual(value)), value);
  if (!end) return appendRare(value, depth, out);
  out.endAt(end);
}

void append(const Dictionary& dictionary, int depth, Bytes& out) {
  char* at = putTag(out.room(1 + sizeof(std::uint32_t)), 'm');
  out.endAt(putNumber(at, static_cast<std::uint32_t>(dictionary.size())));
  for (const auto& [key, element] : dictionary) {
    at = putText(out.room(roomForText(key) + roomForUsual(element)), key);
    const char* const end = putUsual(at, element);
    out.endAt(end ? end : at);
    if (!end) appendRare(element, depth + 1, out);
  }
}

void append(const Array& array, int depth, Bytes& out) {
  char* const at = putTag(out.room(1 + sizeof(std::uint32_t)), 'a');
  out.endAt(putNumber(at, static_cast<std::uint32_t>(array.size())));
  for (const Value& element : array) append(element, depth + 1, out);
}

void appendBytes(char tag, const void* bytes, std::size_t size, Bytes& out) {
  char* const at = putNumber(putTag(out.room(1 + sizeof(std::uint32_t) + size), tag), static_cast<std::uint32_t>(size));
  if (size > 0) std::memcpy(at, bytes, size);
  out.endAt(at + size);
}

void appendRare(const Value& value, int depth, Bytes& out) {
  if (const platform::Data* const data = value.asData()) {
    return appendBytes('x', data->bytes.data(), data->bytes.size(), out);
  }
  if (const platform::URL* const url = value.asURL()) {
    return appendBytes('u', url->absoluteString.data(), url->absoluteString.size(), out);
  }
  if (platform::isLargeInteger(value)) {
    char* const at = putTag(out.room(1 + sizeof(std::uint64_t)), 'l');
    return out.endAt(putNumber(at, value.asObject<platform::LargeInteger>()->number()));
  }
  // take() accepts only a scalar at this depth.
  if (depth >= platform::kMaxPropertyListDepth) {
    out.setInexact();
    return appendBytes('s', nullptr, 0, out);
  }
  if (const Array* const array = value.asArray()) return append(*array, depth, out);
  if (const Dictionary* const dictionary = value.asDictionary()) return append(*dictionary, depth, out);
  out.setInexact();
  append(platform::plainValueOf(*value.asObject()), depth + 1, out);
}

// `left` values may still be taken.
bool take(std::string_view& bytes, int depth, std::size_t& left, Value& value) {
  if (bytes.empty() || depth > platform::kMaxPropertyListDepth || left == 0) return false;
  --left;
  const char tag = bytes.front();
  bytes.remove_prefix(1);
  std::int64_t integer = 0;
  std::uint64_t large = 0;
  double number = 0;
  std::uint32_t count = 0;
  std::string_view data;
  switch (tag) {
    case '0':
      value = Value();
      return true;
    case 'n':
      value = platform::null;
      return true;
    case 't':
    case 'f':
      value = tag == 't';
      return true;
    case 'i':
      if (!takeNumber(bytes, integer)) return false;
      value = integer;
      return true;
    case 'l':
      if (!takeNumber(bytes, large)) return false;
      value = platform::valueOfUnsigned(large);
      return true;
    case 'd':
    case 'D':
      if (!takeNumber(bytes, number)) return false;
      value = tag == 'd' ? Value(number) : Value(Date{number});
      return true;
    case 's':
      if (!takeBytes(bytes, data)) return false;
      value = data;
      return true;
    case 'u':
      if (!takeBytes(bytes, data)) return false;
      value = URL{std::string(data)};
      return true;
    case 'x':
      if (!takeBytes(bytes, data)) return false;
      value = platform::Data{{data.begin(), data.end()}};
      return true;
    case 'a': {
      if (!takeNumber(bytes, count)) return false;
      Array array;
      for (; count > 0; --count) {
        if (!take(bytes, depth + 1, left, array.emplace_back())) return false;
      }
      value = std::move(array);
      return true;
    }
    case 'm': {
      if (!takeNumber(bytes, count)) return false;
      Dictionary dictionary;
      dictionary.reserve(std::min(count, kUsualEntries));
      for (; count > 0; --count) {
        Value element;
        if (!takeBytes(bytes, data) || !take(bytes, depth + 1, left, element)) return false;
        dictionary.setObjectNilHandledForKey(std::move(element), data);
      }
      value = std::move(dictionary);
      return true;
    }
    default:
      return false;
  }
}

}  // namespace

void Bytes::grow(std::size_t needed) {
  std::string larger(std::max(needed, 2 * capacity_), '\0');
  std::memcpy(larger.data(), begin_, size_);
  heap_.swap(larger);
  begin_ = heap_.data();
  capacity_ = heap_.size();
}

std::uint64_t checksumOf(std::uint64_t salt, const Record& record, std::string_view payload) {
  std::uint64_t time = 0;
  std::memcpy(&time, &record.time, sizeof time);
  std::uint64_t hash = mixed(salt, std::uint64_t{record.units} << 32 | record.bytes);
  hash = mixed(mixed(mixed(hash, record.position), time), record.kind);
  if (record.kind == kSession) hash = mixed(hash, record.session);
  // The payload's sum does not need that of the fields, so the processor computes both at the same time.
  return mixed(hash, mixed(salt, payload));
}

std::uint32_t recordedSumOf(std::uint64_t salt, const Record& record) {
  const std::string_view fields(record.times[0], sizeof record.times + sizeof record.isAllowed);
  return static_cast<std::uint32_t>(mixed(mixed(mixed(salt, record.position), record.session), fields));
}

std::uint32_t storeSumOf(std::uint64_t salt, const Record& record, std::uint64_t store) {
  const std::string_view batchID(record.batchID, sizeof record.batchID);
  return static_cast<std::uint32_t>(mixed(mixed(mixed(salt, record.position), store), batchID));
}

void appendValue(const Value& value, Bytes& out) {
  append(value, 0, out);
}

std::optional<Value> takeValue(std::string_view& bytes) {
  Value value;
  std::size_t left = kMaximumValues;
  if (!take(bytes, 0, left, value)) return std::nullopt;
  return value;
}

void appendEvent(const Value& name, const ZRProperties* properties, Bytes& out) {
  append(name, 0, out);
  if (!properties) return;
  append(properties->getAttributesDict(), 0, out);
  const Array& dates = properties->getDateTimeAttributesArray();
  const Array& locations = properties->getLocationAttributesArray();
  const bool isNonInteractive = properties->isNonInteractiveEvent();
  if (dates.empty() && locations.empty() && !isNonInteractive) return;
  append(dates, 0, out);
  append(locations, 0, out);
  append(isNonInteractive, 0, out);
}

std::optional<Event> readEvent(std::string_view payload) {
  Event event;
  Value part;
  std::size_t left = kMaximumValues;
  if (!take(payload, 0, left, event.name)) return std::nullopt;
  if (payload.empty()) return event;
  if (!take(payload, 0, left, part) || !part.isDictionary()) return std::nullopt;
  event.properties.setAttributeDict(std::move(part.mutableDictionary()));
  if (payload.empty()) return event;
  if (!take(payload, 0, left, part) || !part.isArray()) return std::nullopt;
  event.properties.setDateAttrArray(std::move(part.mutableArray()));
  if (!take(payload, 0, left, part) || !part.isArray()) return std::nullopt;
  event.properties.setLocationAttrArray(std::move(part.mutableArray()));
  if (!take(payload, 0, left, part) || !part.asBool() || !payload.empty()) return std::nullopt;
  event.properties.setIsNonInteractive(*part.asBool());
  return event;
}

std::optional<std::string_view> payloadOf(const Record& record, std::uint64_t salt, std::string_view bytes,
                                          std::size_t offset) {
  const std::size_t room = bytes.size() - offset;
  if (record.units < sizeof(Record) / kUnit || record.units > room / kUnit) return std::nullopt;
  if (record.bytes > record.units * kUnit - sizeof(Record)) return std::nullopt;
  if (record.position == 0 || record.position >= kHighest) return std::nullopt;
  const std::string_view payload = bytes.substr(offset + sizeof record, record.bytes);
  if (checksumOf(salt, record, payload) != record.checksum) return std::nullopt;
  return payload;
}

Contents readContents(std::string_view bytes) {
  Contents contents;
  Header header;
  if (bytes.size() < kHeaderBytes) return contents;
  std::memcpy(&header, bytes.data(), sizeof header);
  if (header.magic != kMagic) return contents;
  header.cleared = std::min(header.cleared, kHighest);
  contents.header = header;
  contents.end = header.cleared;
  for (std::size_t offset = kHeaderBytes; offset + sizeof(Record) <= bytes.size();) {
    Record record;
    std::memcpy(&record, bytes.data() + offset, sizeof record);
    const bool isLive = record.state == kCalled || record.state == kRecorded;
    std::size_t step = kUnit;
    std::optional<std::string_view> payload;
    if (isLive || record.state == kReleased) payload = payloadOf(record, header.salt, bytes, offset);
    if (payload) {
      step = record.units * kUnit;
      contents.end = std::max(contents.end, record.position + record.units);
      if (record.state == kRecorded && recordedSumOf(header.salt, record) != record.recordedSum) {
        record.state = kCalled;
      }
      if (storeSumOf(header.salt, record, record.store) != record.storeSum) record.store = 0;
      const bool isStored = record.store != 0 && record.store <= header.stored;
      if (isLive && record.position >= header.cleared) {
        if (record.kind == kSession) contents.sessions.push_back({offset, record, *payload});
        const bool isEvent = record.kind == kEvent || record.kind == kAllowedEvent;
        if (isEvent && !isStored) contents.events.push_back({offset, record, *payload});
      }
    }
    if (isLive && step == kUnit) ++contents.damaged;
    offset += step;
  }
  const auto byPosition = [](const Found& left, const Found& right) {
    return left.record.position < right.record.position;
  };
  std::sort(contents.events.begin(), contents.events.end(), byPosition);
  std::sort(contents.sessions.begin(), contents.sessions.end(), byPosition);
  std::uint64_t last = 0;
  std::unordered_map<std::string_view, std::string_view> payloads;
  std::erase_if(contents.sessions, [&](Found& session) {
    if (session.record.session < last) return true;  // no ring writes that
    last = session.record.session;
    session.payload = payloads.emplace(session.payload, session.payload).first->second;
    return false;
  });
  return contents;
}

std::string_view sessionOf(const Contents& contents, const Record& event) {
  const auto& sessions = contents.sessions;
  if (sessions.empty()) return {};
  if (event.state == kRecorded) {
    const auto named = std::partition_point(
        sessions.begin(), sessions.end(), [&](const Found& session) { return session.record.session < event.session; });
    if (named != sessions.end() && named->record.session == event.session) return named->payload;
  }
  const auto next = std::partition_point(
      sessions.begin(), sessions.end(), [&](const Found& session) { return session.record.position < event.position; });
  return next == sessions.begin() ? next->payload : std::prev(next)->payload;
}

std::string_view textOf(const char* field, std::size_t size) {
  const std::string_view text(field, ::strnlen(field, size));
  const bool isPrintable = std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
  return isPrintable ? text : std::string_view();
}

}  // namespace zorvane::journal
