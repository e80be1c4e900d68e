// The bytes of a journal: header, records, payloads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane::journal {

// "ZRJRNL02", read as a number.
inline constexpr std::uint64_t kMagic = 0x32304C4E524A525A;
inline constexpr std::size_t kHeaderBytes = 4096;
inline constexpr std::size_t kUnit = 64;
// Beyond any position and any number of a store operation that a process reaches.
inline constexpr std::uint64_t kHighest = std::uint64_t{1} << 60;

// What a reader takes: one byte can become a value of 24 bytes in memory.
inline constexpr std::size_t kMaximumValues = 1u << 20;

// The fields are described in docs/journal.md.
struct Header {
  std::uint64_t magic;
  std::uint64_t salt;
  std::uint64_t bytes;
  std::uint64_t cleared;
  std::uint64_t armed;
  std::uint64_t stored;
};

enum State : std::uint64_t {
  kNone = 0,
  kCalled = 0x6C6C61432D525A01,
  kRecorded = 0x636552002D525A02,
  kReleased = 0x6C6552002D525A03,
};
// kAllowedEvent: data tracking was opted out when it was called, and its name on the list of updateOptOutEvents.
enum Kind : std::uint32_t { kEvent = 1, kSession = 2, kAllowedEvent = 3 };

struct Record {
  std::uint64_t state;
  std::uint32_t units;
  std::uint32_t bytes;
  std::uint64_t position;
  std::uint64_t checksum;
  double time;  // seconds since 1970
  std::uint32_t kind;
  std::uint32_t recordedSum;
  std::uint64_t session;
  std::uint64_t store;
  char times[2][31];
  std::uint8_t isAllowed;
  std::uint8_t unused;
  char batchID[60];
  std::uint32_t storeSum;
};
static_assert(sizeof(Record) == 3 * kUnit);

std::uint64_t checksumOf(std::uint64_t salt, const Record& record, std::string_view payload);
std::uint32_t recordedSumOf(std::uint64_t salt, const Record& record);
std::uint32_t storeSumOf(std::uint64_t salt, const Record& record, std::uint64_t store);

// Where a payload is encoded. A usual one needs no allocation.
class Bytes {
 public:
  Bytes() = default;
  Bytes(const Bytes&) = delete;
  Bytes& operator=(const Bytes&) = delete;

  std::string_view view() const { return {begin_, size_}; }
  // The end, with room for so many bytes behind it. Valid until the next call.
  char* room(std::size_t count) {
    if (size_ + count > capacity_) grow(size_ + count);
    return begin_ + size_;
  }
  // Takes what was written into that room.
  void endAt(const char* end) { size_ = static_cast<std::size_t>(end - begin_); }
  // Whether a reader gets the values that were appended. Each takes at least one byte.
  bool isExact() const { return isExact_ && size_ <= kMaximumValues; }
  void setInexact() { isExact_ = false; }

 private:
  void grow(std::size_t needed);

  char first_[1024];
  std::string heap_;
  char* begin_ = first_;
  std::size_t size_ = 0;
  std::size_t capacity_ = sizeof first_;
  bool isExact_ = true;
};

// Appends the value. Objects give their plain value; what is deeper than a property list may be becomes "".
void appendValue(const Value& value, Bytes& out);
// Reads one value and removes it from the bytes. Absent when they are malformed.
std::optional<Value> takeValue(std::string_view& bytes);

// The payload of an event.
void appendEvent(const Value& name, const ZRProperties* properties, Bytes& out);
struct Event {
  Value name;
  ZRProperties properties;
};
std::optional<Event> readEvent(std::string_view payload);

// The payload of the record, a copy of the one at that offset of a journal's bytes. Absent when it is damaged.
std::optional<std::string_view> payloadOf(const Record& record, std::uint64_t salt, std::string_view bytes,
                                          std::size_t offset);

// What stands in a journal's bytes.
struct Found {
  std::size_t offset;  // of the record, in bytes
  Record record;
  std::string_view payload;
};
struct Contents {
  // Absent when the bytes are no journal of this version.
  std::optional<Header> header;
  // Valid records that are neither released nor cleared, by position. Those that `stored` releases are left out. Of a
  // recorded event with a wrong `recordedSum` the state is kCalled; with a wrong `storeSum`, `store` is 0.
  std::vector<Found> events;
  // By number, too. Equal payloads begin at the same address.
  std::vector<Found> sessions;
  // Records with a wrong checksum.
  std::size_t damaged = 0;
  // Behind every record and everything cleared.
  std::uint64_t end = 0;
};
// Any bytes. The payloads point into them.
Contents readContents(std::string_view bytes);

// The payload of the session that the event belongs to; empty when there is none.
std::string_view sessionOf(const Contents& contents, const Record& event);
// The text of a field; empty when it is no printable ASCII.
std::string_view textOf(const char* field, std::size_t size);

}  // namespace zorvane::journal
