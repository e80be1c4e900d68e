// The mapped file of a journal: a ring of records.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Values/Result.h"
#include "ZRAnalytics/Journal/ZRJournalFormat.h"

namespace zorvane::journal {

inline constexpr std::size_t kMaximumBytes = 256u << 20;

// A store operation. An inner one, which begins while another is under way, has the number of that one. Only the outer
// one sets `armed` back and `stored`; the next launch finds the events of both by their batches.
struct Operation {
  std::uint64_t number;
  bool isInner = false;
  bool isStored = false;
  std::vector<std::uint64_t> positions{};
};

// The order of the stores is that of docs/journal.md. Thread-safe after start(), except where it says otherwise. Calls
// nothing of the host.
class Ring {
 public:
  Ring() = default;
  // Only for a ring that no thread uses any more.
  ~Ring();
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;

  // Opens or makes the file, locks it, maps it and reads its bytes, unless they are more than the maximum. Not
  // thread-safe. A process that is forked later has no file: there all of the below does nothing.
  platform::Status open(const std::string& path, std::size_t maximum, std::string& bytes);
  // What was found stays, as far as it is not cleared. Call before anything below.
  void keep(const Contents& contents);
  // Empties the file, gives it that size and takes records from then on. `contents` are those of the bytes. Not
  // thread-safe.
  platform::Status start(std::size_t bytes, const Contents& contents);

  bool isThere() const { return isThere_.load(std::memory_order_acquire); }

  // Adds an event. 0 when there is no room. Takes no lock while there is.
  std::uint64_t append(Kind kind, std::string_view payload, double time);
  // The payload of an event that was appended, for as long as it is neither marked nor released, cleared or not. Absent
  // when the file was damaged, and in a forked process.
  std::optional<std::string> read(std::uint64_t position);
  // False when there is no room for an event of this session; then append() gives 0 until there is.
  bool setSession(std::string payload);
  // No event is taken until the next setSession().
  void dropSession();
  // False when its session could not be written; then it stays as it was called.
  bool markRecorded(std::uint64_t position, bool isAllowed, std::string_view gmtTime, std::string_view localTime);
  void release(std::uint64_t position);
  // Syncs the header, so that what was cleared stays away after a power loss.
  void clear();

  // A store operation; docs/journal.md calls these steps 1 to 4.
  Operation beginStore();
  void assign(Operation& operation, std::uint64_t position, std::string_view batchID);
  // The same for a record of an earlier launch, before start().
  void assignFound(const Operation& operation, const Found& found, std::string_view batchID);
  void arm(const Operation& operation);
  void stored(Operation& operation);
  // Without stored() its events are as before.
  void endStore(const Operation& operation);

  // Writes what has changed to the disk.
  void sync();

  // For tests: called before each store that another launch can see. Set it while no other thread uses a ring.
  static inline void (*onStep)() = nullptr;
  // Before these bytes of the file are synced.
  static inline void (*onSync)(std::size_t first, std::size_t last) = nullptr;

 private:
  static void leaveInChild();
  Header& header() const { return *reinterpret_cast<Header*>(base_); }
  Record& at(std::uint64_t position) const {
    return *reinterpret_cast<Record*>(base_ + kHeaderBytes + position % capacity_ * kUnit);
  }
  std::uint64_t add(Kind kind, std::string_view payload, double time, std::uint64_t session);
  void write(std::uint64_t position, std::uint64_t units, Kind kind, std::string_view payload, double time,
             std::uint64_t session) const;
  // Null for a record that was cleared or is none.
  Record* live(std::uint64_t position) const ZR_REQUIRES(mutex_);
  bool writeSession() ZR_REQUIRES(mutex_);
  // Frees the space of released records.
  void sweep(bool isClearing = false) ZR_REQUIRES(mutex_);
  // Absent when it is damaged.
  std::optional<std::string_view> payloadAt(std::uint64_t position) const;
  // A cleared record that was marked or released.
  void forget(std::uint64_t position) ZR_REQUIRES(mutex_);
  // False without memory.
  bool keepUnread(const Record& record) ZR_REQUIRES(mutex_);
  bool moveSession() ZR_REQUIRES(mutex_);
  void assignTo(Record& record, const Operation& operation, std::string_view batchID) const;
  void wipe(std::uint64_t from, std::uint64_t to) const;
  bool map(std::size_t bytes);
  void unmap();
  // These bytes of the file.
  void sync(std::size_t first, std::size_t last) const;

  // Its file is open and mapped by this process.
  std::atomic<bool> isThere_{false};
  int file_ = -1;
  char* base_ = nullptr;
  std::size_t mapped_ = 0;
  // In units.
  std::uint64_t capacity_ = 0;
  std::atomic<bool> takesEvents_{false};
  // The oldest position whose space is in use, and where the next record begins. The callers write the latter and the
  // module's thread locks the mutex, both for each event: on cache lines of their own.
  std::atomic<std::uint64_t> tail_{0};
  alignas(64) std::atomic<std::uint64_t> head_{0};
  alignas(64) platform::Mutex mutex_;
  // All records before it are released, or are sessions.
  std::uint64_t swept_ ZR_GUARDED_BY(mutex_) = 0;
  // Payloads of swept records that were cleared before they were marked or released, by position.
  std::unordered_map<std::uint64_t, std::string> unread_ ZR_GUARDED_BY(mutex_);
  // A session record at the tail; 0: none.
  std::uint64_t sessionAtTail_ ZR_GUARDED_BY(mutex_) = 0;
  // Empty: none.
  std::string session_ ZR_GUARDED_BY(mutex_);
  std::uint64_t sessionNumber_ ZR_GUARDED_BY(mutex_) = 0;
  bool isSessionWritten_ ZR_GUARDED_BY(mutex_) = false;
  // The number of the operation under way; 0: none. The highest number so far.
  std::uint64_t store_ ZR_GUARDED_BY(mutex_) = 0;
  std::uint64_t lastStore_ ZR_GUARDED_BY(mutex_) = 0;
};

}  // namespace zorvane::journal
