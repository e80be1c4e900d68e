#include "ZRAnalytics/EventManagement/ZRBatchFile.h"

#include <string_view>
#include <utility>

#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Journal/ZREventJournal.h"

namespace zorvane {

using platform::PropertyListDictionarySnapshot;

bool ZRStoredBatch::isBatch() const {
  return entry_->value.isDictionary() || entry_->value.isArray();
}

std::size_t ZRStoredBatch::eventCount() const {
  return isBareArray() ? entry_->value.count() : entry_->value.element(kBatchKeyEvents).count();
}

ZRBatchParts ZRStoredBatch::parts() const {
  const auto& stored = entry_->value;
  ZRBatchParts parts;
  if (isBareArray()) {
    parts.events = stored.deferred();
    parts.eventCount = stored.count();
    parts.batchID = id();
    return parts;
  }
  constexpr std::string_view kKeys[] = {kBatchKeyEvents, kBatchKeyBatchID, kBatchKeyRequestTime, kBatchKeySession,
                                        kBatchKeySource};
  const auto elements = stored.elements(kKeys);
  parts.events = elements[0].deferred();
  parts.eventCount = elements[0].count();
  parts.batchID = elements[1].decode();
  parts.requestTime = elements[2].decode();
  parts.session = elements[3].deferred();
  parts.source = elements[4].deferred();
  return parts;
}

ZRBatchFile::ZRBatchFile(std::string path, FailureHandler onFailure, std::size_t maxBytes)
    : path_(std::move(path)), onFailure_(std::move(onFailure)), maxBytes_(maxBytes) {}

bool ZRBatchFile::exists() const {
  return platform::fileExists(path_);
}

std::optional<std::vector<ZRStoredBatch>> ZRBatchFile::load() {
  PropertyListDictionarySnapshot snapshot;
  Outcome outcome;
  std::string failure;
  {
    platform::MutexLock lock(mutex_);
    outcome = read(snapshot, failure);
  }
  if (outcome != Outcome::Done) {
    report(failure);
    return std::nullopt;
  }
  std::vector<ZRStoredBatch> batches;
  const auto entries = snapshot.sharedEntries();
  batches.reserve(entries->size());
  std::string undecodable;
  for (const auto& entry : *entries) {
    if (entry.value.isDecodable()) {
      batches.push_back(ZRStoredBatch({entries, &entry}));
    } else {
      undecodable += ' ';
      undecodable += entry.key;
    }
  }
  {
    platform::MutexLock lock(mutex_);
    if (reportedBatches_ == undecodable) return batches;
    reportedBatches_ = undecodable;
  }
  if (!undecodable.empty() && onFailure_) onFailure_("cannot be decoded and are kept:" + undecodable);
  return batches;
}

ZRBatchFile::Outcome ZRBatchFile::store(const Dictionary& batches, ZRStoreObserver* observer) {
  if (batches.empty()) return Outcome::Done;
  Outcome outcome;
  std::string failure;
  {
    platform::MutexLock lock(mutex_);
    const platform::DirectoryLock processLock(path_);
    PropertyListDictionarySnapshot snapshot;
    outcome = read(snapshot, failure);
    if (outcome == Outcome::Done) {
      const auto grown = snapshot.withEntries(batches);
      if (!grown) return Outcome::TooLarge;
      outcome = write(*grown, processLock, failure);
    }
    if (outcome == Outcome::Done) {
      lastReportedFailure_.clear();
      if (observer) observer->stored();
    }
  }
  if (outcome != Outcome::Done) report(failure);
  return outcome;
}

platform::Result<ZRBatchFile::Outcome> ZRBatchFile::remove(const Dictionary& batchIDs,
                                                           platform::Durability durability) {
  if (batchIDs.empty()) return Outcome::Done;
  std::string failure;
  Outcome outcome;
  {
    platform::MutexLock lock(mutex_);
    const platform::DirectoryLock processLock(path_);
    PropertyListDictionarySnapshot snapshot;
    outcome = read(snapshot, failure);
    if (outcome == Outcome::Done) {
      std::vector<PropertyListDictionarySnapshot::Entry> kept;
      for (const auto& entry : snapshot.entries()) {
        if (!batchIDs.contains(entry.key)) kept.push_back(entry);
      }
      if (kept.empty()) return exists() ? removeFile(durability) : Outcome::Done;
      if (kept.size() == snapshot.entries().size()) return Outcome::Done;
      outcome = write(PropertyListDictionarySnapshot::ofEntries(kept), processLock, failure, durability);
    }
  }
  if (outcome != Outcome::Done) report(failure);
  return outcome;
}

ZRBatchFile::Outcome ZRBatchFile::keepIf(const std::function<bool(const Value& record)>& passes) {
  Outcome outcome = Outcome::Done;
  std::string failure;
  for (bool isTried = false; !isTried;) {
    PropertyListDictionarySnapshot found;
    {
      platform::MutexLock lock(mutex_);
      outcome = read(found, failure);
    }
    if (outcome != Outcome::Done) break;
    std::vector<PropertyListDictionarySnapshot::Entry> kept;
    Dictionary changed;
    for (const auto& entry : found.entries()) {
      Value batch = entry.value.decode();
      const Value stored = batch.isDictionary() ? batch.asDictionary()->objectForKey(kBatchKeyEvents) : batch;
      Array events = stored.isArray() ? *stored.asArray() : Array();
      if (std::erase_if(events, [&passes](const Value& record) { return !passes(record); }) == 0) {
        kept.push_back(entry);
      } else if (!events.empty()) {
        if (batch.isDictionary()) {
          batch.mutableDictionary().set(kBatchKeyEvents, std::move(events));
        } else {
          batch = std::move(events);
        }
        changed.set(entry.key, std::move(batch));
      }
    }
    if (kept.size() == found.entries().size()) return Outcome::Done;
    // Not an extended snapshot: that would hold the bytes of the removed events.
    const auto left = PropertyListDictionarySnapshot::ofEntries(kept).withEntries(changed);
    if (!left) return Outcome::TooLarge;

    platform::MutexLock lock(mutex_);
    const platform::DirectoryLock processLock(path_);
    PropertyListDictionarySnapshot now;
    outcome = read(now, failure);
    isTried = outcome != Outcome::Done || &now.entries() == &found.entries();
    if (!isTried || outcome != Outcome::Done) continue;
    if (!left->entries().empty()) {
      outcome = write(*left, processLock, failure);
    } else if (const auto removed = removeFile(platform::Durability::Lasting); !removed) {
      failure = removed.error().message;
      outcome = Outcome::Failed;
    }
  }
  if (outcome != Outcome::Done) report(failure);
  return outcome;
}

platform::Status ZRBatchFile::removeAll() {
  platform::MutexLock lock(mutex_);
  const platform::DirectoryLock processLock(path_);
  const auto removed = removeFile(platform::Durability::Lasting);
  if (!removed) return removed.error();
  return platform::Done{};
}

ZRBatchFile::Outcome ZRBatchFile::read(PropertyListDictionarySnapshot& snapshot, std::string& failure) {
  const auto found = platform::fileIdentity(path_);
  if (!found || !found.value()) {
    snapshot_.reset();
    if (!found) {
      // The file may be there: writing a new one in its place could lose it.
      failure = found.error().message;
      return Outcome::Failed;
    }
    snapshot = PropertyListDictionarySnapshot();
    return Outcome::Done;
  }
  const platform::FileIdentity identity = *found.value();
  if (!snapshot_ || identity_ != identity) {
    snapshot_.reset();
    auto bytes = platform::readFile(path_, maxBytes_);
    if (!bytes) {
      failure = bytes.error().message;
      return Outcome::Failed;
    }
    auto opened = PropertyListDictionarySnapshot::open(std::move(bytes).value());
    if (!opened) {
      failure = path_ + ": " + opened.error().message;
      return Outcome::Unreadable;
    }
    snapshot_ = std::move(opened).value();
    identity_ = identity;
  }
  snapshot = *snapshot_;
  return Outcome::Done;
}

ZRBatchFile::Outcome ZRBatchFile::write(PropertyListDictionarySnapshot snapshot,
                                        const platform::DirectoryLock& processLock, std::string& failure,
                                        platform::Durability durability) {
  std::size_t size = 0;
  for (const std::string_view piece : snapshot.pieces()) size += piece.size();
  if (size > maxBytes_) {
    failure = "cannot write " + path_ + ": it would be too large to be read";
    return Outcome::Failed;
  }
  // Count the batch as stored once the file is replaced, whatever fails then, or it is saved twice.
  bool stands = false;
  try {
    const auto written = platform::replaceFileAtomically(path_, snapshot.pieces(), processLock, &stands, durability);
    if (!stands) {
      failure = written.error().message;
      return Outcome::Failed;
    }
    snapshot_.reset();
    const auto identity = platform::fileIdentity(path_);
    if (!identity || !identity.value()) return Outcome::Done;
    snapshot_ = std::move(snapshot);
    identity_ = *identity.value();
  } catch (...) {
    // No memory, behind the replacement.
    if (!stands) throw;
  }
  return Outcome::Done;
}

platform::Result<ZRBatchFile::Outcome> ZRBatchFile::removeFile(platform::Durability durability) {
  snapshot_.reset();
  const auto removed = platform::removeFile(path_, durability);
  if (!removed) return removed.error();
  return Outcome::Removed;
}

void ZRBatchFile::report(const std::string& failure) {
  {
    platform::MutexLock lock(mutex_);
    if (lastReportedFailure_ == failure) return;
    lastReportedFailure_ = failure;
  }
  if (onFailure_) onFailure_(failure);
}

}  // namespace zorvane
