#include "ZRAnalytics/Journal/ZRJournalRing.h"

#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "Platform/Files/FileSystem.h"
#include "Platform/Files/SystemCalls.h"
#include "Platform/Text/RandomBytes.h"
#include "ZRAnalytics/Journal/ZRJournalFile.h"

namespace zorvane::journal {
namespace {

using platform::systemCalls;

// A kill between two stores leaves whole words.
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

// The one that has a file.
std::atomic<Ring*> openRing{nullptr};

void step() {
  if (Ring::onStep) Ring::onStep();
}

void set(std::uint64_t& field, std::uint64_t value) {
  step();
  __atomic_store_n(&field, value, __ATOMIC_RELEASE);
}

std::uint64_t get(const std::uint64_t& field) {
  return __atomic_load_n(&field, __ATOMIC_ACQUIRE);
}

void setText(char* field, std::size_t size, std::string_view text) {
  step();
  std::memset(field, 0, size);
  std::memcpy(field, text.data(), std::min(text.size(), size - 1));
}

std::uint64_t unitsOf(std::size_t payload) {
  return (sizeof(Record) + payload + kUnit - 1) / kUnit;
}

// Leaves pages alone that are zero already, so that they are not written to the disk.
void zero(char* bytes, std::size_t size) {
  constexpr std::size_t kPage = 4096;
  for (std::size_t at = 0; at < size; at += kPage) {
    const std::string_view page(bytes + at, std::min(kPage, size - at));
    if (page.find_first_not_of('\0') == std::string_view::npos) continue;
    step();
    std::memset(bytes + at, 0, page.size());
  }
}

}  // namespace

Ring::~Ring() {
  Ring* open = this;
  openRing.compare_exchange_strong(open, nullptr);
  unmap();
  if (file_ >= 0) systemCalls().close(file_);
}

// The parent's lock lasts until its last descriptor and mapping are gone. A mutex may be locked for ever here.
void Ring::leaveInChild() {
  Ring* const ring = openRing.exchange(nullptr);
  if (!ring) return;
  ring->isThere_ = false;
  ring->takesEvents_ = false;
  if (ring->base_) ::munmap(ring->base_, ring->mapped_);
  ring->base_ = nullptr;
  ::close(std::exchange(ring->file_, -1));
}

platform::Status Ring::open(const std::string& path, std::size_t maximum, std::string& bytes) {
  const auto opened = openFile(path);
  if (!opened) return opened.error();
  file_ = opened.value();
  static const int registered = ::pthread_atfork(nullptr, nullptr, leaveInChild);
  if (registered != 0) return platform::Error{"pthread_atfork", registered};
  openRing = this;
  struct stat status {};
  if (systemCalls().fstat(file_, &status) != 0) return errorOf("fstat");
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size == 0) {
    const auto synced = platform::syncDirectoryOf(path);
    if (!synced) return synced.error();
  }
  if (size <= kHeaderBytes + sizeof(Record) || size > maximum) return platform::Done{};
  // Before it is mapped: a bad block is an error here, and a signal there.
  if (!readAll(file_, size, bytes)) return errorOf("read");
  if (!map(size)) return errorOf("mmap");
  isThere_ = true;
  return platform::Done{};
}

void Ring::keep(const Contents& contents) {
  head_ = contents.end;
  platform::MutexLock lock(mutex_);
  lastStore_ = std::max(contents.header->armed, contents.header->stored);
  for (const Found& event : contents.events) lastStore_ = std::max(lastStore_, event.record.store);
}

platform::Status Ring::start(std::size_t bytes, const Contents& contents) {
  platform::MutexLock lock(mutex_);
  const bool isKept = mapped_ == bytes && contents.header && contents.header->bytes == bytes &&
                      contents.end < kHighest && lastStore_ < kHighest && !hasHoles(file_, bytes);
  if (contents.header) set(header().cleared, contents.end);
  if (isKept) {
    zero(base_ + kHeaderBytes, mapped_ - kHeaderBytes);
  } else {
    if (contents.header) set(header().magic, 0);
    isThere_ = false;
    unmap();
    step();
    if (::ftruncate(file_, 0) != 0 || ::lseek(file_, 0, SEEK_SET) != 0) return errorOf("ftruncate");
    step();
    if (!writeZeros(file_, bytes)) return errorOf("write");
    if (!map(bytes)) return errorOf("mmap");
    std::uint64_t salt = 0;
    platform::fillWithRandomBytes({reinterpret_cast<std::uint8_t*>(&salt), sizeof salt});
    header() = {0, salt, bytes, 0, 0, 0};
    set(header().magic, kMagic);
    lastStore_ = 0;
  }
  const std::uint64_t first = isKept ? (contents.end / capacity_ + 1) * capacity_ : capacity_;
  swept_ = first;
  head_ = first;
  tail_ = first;
  isThere_ = true;
  return platform::Done{};
}

bool Ring::map(std::size_t bytes) {
  void* const mapped = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0);
  if (mapped == MAP_FAILED) return false;
  base_ = static_cast<char*>(mapped);
  mapped_ = bytes;
  capacity_ = (bytes - kHeaderBytes) / kUnit;
  return true;
}

void Ring::unmap() {
  if (base_) ::munmap(base_, mapped_);
  base_ = nullptr;
  mapped_ = 0;
}

// --- Records

std::uint64_t Ring::append(Kind kind, std::string_view payload, double time) {
  if (!takesEvents_.load(std::memory_order_acquire)) return 0;
  const std::uint64_t position = add(kind, payload, time, 0);
  if (position != 0) return position;
  // A sweep may have stopped at a record that was not yet written.
  platform::MutexLock lock(mutex_);
  sweep();
  return takesEvents_.load(std::memory_order_acquire) ? add(kind, payload, time, 0) : 0;
}

std::uint64_t Ring::add(Kind kind, std::string_view payload, double time, std::uint64_t session) {
  const std::uint64_t units = unitsOf(payload.size());
  if (units > capacity_ / 4) return 0;
  const std::uint64_t tail = tail_.load(std::memory_order_acquire);
  std::uint64_t start = head_.load(std::memory_order_relaxed);
  std::uint64_t position = 0;
  do {
    const std::uint64_t offset = start % capacity_;
    position = offset + units > capacity_ ? start + capacity_ - offset : start;
    if (position + units - tail > capacity_) return 0;
  } while (!head_.compare_exchange_weak(start, position + units, std::memory_order_relaxed));
  if (position != start) {
    Record& skipped = at(start);
    skipped.units = static_cast<std::uint32_t>(position - start);
    set(skipped.state, kReleased);
  }
  write(position, units, kind, payload, time, session);
  return position;
}

void Ring::write(std::uint64_t position, std::uint64_t units, Kind kind, std::string_view payload, double time,
                 std::uint64_t session) const {
  Record& record = at(position);
  step();
  record.units = static_cast<std::uint32_t>(units);
  record.bytes = static_cast<std::uint32_t>(payload.size());
  record.position = position;
  record.time = time;
  record.kind = kind;
  record.session = session;
  step();
  std::memcpy(reinterpret_cast<char*>(&record) + sizeof record, payload.data(), payload.size());
  step();
  record.checksum = checksumOf(header().salt, record, payload);
  set(record.state, kCalled);
}

Record* Ring::live(std::uint64_t position) const {
  if (position == 0 || position < header().cleared) return nullptr;
  Record& record = at(position);
  return record.position == position && get(record.state) != kReleased ? &record : nullptr;
}

bool Ring::setSession(std::string payload) {
  if (!isThere()) return true;
  platform::MutexLock lock(mutex_);
  session_ = std::move(payload);
  ++sessionNumber_;
  return writeSession();
}

void Ring::dropSession() {
  if (!isThere()) return;
  platform::MutexLock lock(mutex_);
  session_.clear();
  writeSession();
}

bool Ring::writeSession() {
  isSessionWritten_ = false;
  for (int tries = session_.empty() ? 0 : 2; tries > 0 && !isSessionWritten_; --tries) {
    isSessionWritten_ = add(kSession, session_, 0, sessionNumber_) != 0;
    if (!isSessionWritten_) sweep();
  }
  takesEvents_.store(isSessionWritten_, std::memory_order_release);
  return isSessionWritten_;
}

std::optional<std::string> Ring::read(std::uint64_t position) {
  if (!isThere()) return std::nullopt;
  platform::MutexLock lock(mutex_);
  if (position < swept_) {
    const auto unread = unread_.find(position);
    return unread == unread_.end() ? std::nullopt : std::optional(unread->second);
  }
  const auto payload = payloadAt(position);
  return payload ? std::optional<std::string>(*payload) : std::nullopt;
}

std::optional<std::string_view> Ring::payloadAt(std::uint64_t position) const {
  const Record record = at(position);
  if (record.position != position) return std::nullopt;
  const auto offset = static_cast<std::size_t>(reinterpret_cast<const char*>(&at(position)) - base_);
  return payloadOf(record, header().salt, {base_, mapped_}, offset);
}

bool Ring::markRecorded(std::uint64_t position, bool isAllowed, std::string_view gmtTime, std::string_view localTime) {
  if (!isThere()) return true;
  platform::MutexLock lock(mutex_);
  Record* const record = live(position);
  if (!record) {
    forget(position);
    return true;
  }
  // Before the return: keepUnread() tells by it that the event is in the batch.
  set(record->session, sessionNumber_);
  if (!isSessionWritten_ && !writeSession()) return false;
  setText(record->times[0], sizeof record->times[0], gmtTime);
  setText(record->times[1], sizeof record->times[1], localTime);
  record->isAllowed = isAllowed ? 1 : 0;
  record->recordedSum = recordedSumOf(header().salt, *record);
  set(record->state, kRecorded);
  return true;
}

void Ring::forget(std::uint64_t position) {
  if (position < swept_) {
    unread_.erase(position);
  } else if (position != 0 && at(position).position == position) {
    // clear() met a record that was not yet written, and left this one.
    set(at(position).state, kReleased);
    sweep(true);
    if (!isSessionWritten_) writeSession();
  }
}

void Ring::release(std::uint64_t position) {
  if (position == 0 || !isThere()) return;
  platform::MutexLock lock(mutex_);
  Record* const record = live(position);
  if (!record) return forget(position);
  set(record->state, kReleased);
  sweep();
  if (!isSessionWritten_) writeSession();
}

void Ring::clear() {
  if (!isThere()) return;
  {
    platform::MutexLock lock(mutex_);
    if (!isThere()) return;
    set(header().cleared, std::max(head_.load(), header().cleared));
    if (sessionNumber_ != 0) {
      sweep(true);
      writeSession();
    }
  }
  sync(0, sizeof(Header));
}

void Ring::sweep(bool isClearing) {
  const std::uint64_t head = head_.load(std::memory_order_acquire);
  while (swept_ < head) {
    const Record& record = at(swept_);
    const std::uint64_t state = get(record.state);
    if (state == kNone) break;
    const bool isVoid = state == kReleased || swept_ < header().cleared;
    if (!isVoid && record.kind == kSession) {
      wipe(tail_, swept_);
      tail_.store(swept_, std::memory_order_release);
      sessionAtTail_ = swept_;
    } else if (!isVoid || (state == kCalled && !keepUnread(record))) {
      break;
    }
    // Something else wrote to it: the journal fills up, and later events are in memory only.
    if (record.units == 0 || record.units > head - swept_) break;
    swept_ += record.units;
  }
  // A copy of the session costs more than a little space.
  if (!isClearing && swept_ - tail_ < capacity_ / 8) return;
  if (sessionAtTail_ != 0 && sessionAtTail_ >= header().cleared) {
    if (!moveSession()) return;
  } else {
    wipe(tail_, swept_);
    sessionAtTail_ = 0;
    tail_.store(swept_, std::memory_order_release);
  }
}

// The module's thread has yet to mark or to release it. One with a session is in the current batch: markRecorded() had
// no room for that session.
bool Ring::keepUnread(const Record& record) {
  if (record.kind == kSession || record.session != 0) return true;
  try {
    if (const auto payload = payloadAt(swept_)) unread_.emplace(swept_, *payload);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool Ring::moveSession() {
  const auto payload = payloadAt(sessionAtTail_);
  if (!payload) return false;
  const Record& old = at(sessionAtTail_);
  const std::uint64_t units = unitsOf(payload->size());
  std::uint64_t position = swept_ - units;
  // A record never wraps: then it goes before the end of the ring.
  if (position % capacity_ + units > capacity_) position -= position % capacity_ + units - capacity_;
  if (position < sessionAtTail_ + units) return false;
  wipe(sessionAtTail_ + units, swept_);
  write(position, units, kSession, *payload, old.time, old.session);
  wipe(sessionAtTail_, sessionAtTail_ + units);
  sessionAtTail_ = position;
  tail_.store(position, std::memory_order_release);
  return true;
}

void Ring::wipe(std::uint64_t from, std::uint64_t to) const {
  while (from < to) {
    const std::uint64_t offset = from % capacity_;
    const std::uint64_t units = std::min(to - from, capacity_ - offset);
    step();
    std::memset(base_ + kHeaderBytes + offset * kUnit, 0, static_cast<std::size_t>(units * kUnit));
    from += units;
  }
}

// --- Store operations

Operation Ring::beginStore() {
  platform::MutexLock lock(mutex_);
  const bool isInner = store_ != 0;
  if (!isInner) store_ = ++lastStore_;
  return {store_, isInner};
}

void Ring::assign(Operation& operation, std::uint64_t position, std::string_view batchID) {
  if (!isThere()) return;
  platform::MutexLock lock(mutex_);
  Record* const record = live(position);
  if (!record) return;
  // First, as it may throw.
  operation.positions.push_back(position);
  assignTo(*record, operation, batchID);
}

void Ring::assignFound(const Operation& operation, const Found& found, std::string_view batchID) {
  assignTo(*reinterpret_cast<Record*>(base_ + found.offset), operation, batchID);
}

void Ring::assignTo(Record& record, const Operation& operation, std::string_view batchID) const {
  setText(record.batchID, sizeof record.batchID, batchID);
  record.storeSum = storeSumOf(header().salt, record, operation.number);
  set(record.store, operation.number);
}

void Ring::arm(const Operation& operation) {
  if (!isThere()) return;
  std::size_t first = mapped_;
  std::size_t last = 0;
  {
    platform::MutexLock lock(mutex_);
    set(header().armed, operation.number);
    for (const std::uint64_t position : operation.positions) {
      const auto offset = static_cast<std::size_t>(reinterpret_cast<char*>(&at(position)) - base_);
      first = std::min(first, offset);
      last = std::max(last, offset + sizeof(Record));
    }
  }
  // The records of an earlier launch are not listed.
  if (first >= last) return sync();
  // Only these pages: a call that writes to a page that is being synced may wait.
  sync(0, sizeof(Header));
  sync(first, last);
}

void Ring::stored(Operation& operation) {
  if (!isThere()) return;
  platform::MutexLock lock(mutex_);
  operation.isStored = true;
  // Events of an outer operation have the same number, and are not in the file yet.
  if (!operation.isInner) set(header().stored, operation.number);
}

void Ring::endStore(const Operation& operation) {
  if (!isThere()) return;
  platform::MutexLock lock(mutex_);
  if (!operation.isInner) store_ = 0;
  if (operation.isStored) return;
  if (!operation.isInner) set(header().armed, 0);
  for (const std::uint64_t position : operation.positions) {
    if (Record* const record = live(position)) set(record->store, 0);
  }
}

void Ring::sync() {
  if (isThere()) sync(0, mapped_);
}

void Ring::sync(std::size_t first, std::size_t last) const {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  first -= first % page;
  step();
  if (onSync) onSync(first, last);
  (void)::msync(base_ + first, last - first, MS_SYNC);
}

}  // namespace zorvane::journal
