#include "ZRAnalytics/EventManagement/ZRBatchSaver.h"

#include <algorithm>
#include <string>
#include <utility>

#include "Platform/Formats/PropertyListDictionaryFile.h"
#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Journal/ZREventJournal.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRPlainValue.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/Utils/ZRSignedRequest.h"
#include "ZorvaneCore/ZRConfigDataManager.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZRBatchSaver";
constexpr ReportSite kSave{kFile, "saveCurrentBatch"};

}  // namespace

ZRBatchSaver::ZRBatchSaver(ZRCurrentBatch& current, ZRBatchFile& file, std::function<void()> flush)
    : current_(current),
      file_(file),
      flush_(std::move(flush)),
      queue_(platform::hostServices().scheduler->makeSerialQueue("com.zorvane.analytics.batchfile")) {}

void ZRBatchSaver::save() {
  const ZRTurn::Scope turn(storeTurn_);
  guarded(kSave, "exception is %@", [this] { close(); });
  guarded(kSave, "exception is %@", [this] { storeClosed(); });
}

void ZRBatchSaver::saveSoon() {
  guarded(kSave, "exception is %@", [this] { close(); });
  if (isTaskWaiting_.exchange(true)) return;
  const bool isPosted = guarded(kSave, "exception is %@", [this] {
    queue_->async([this] {
      isTaskWaiting_ = false;
      guarded(kSave, "exception is %@", [this] { storeClosed(); });
      flush_();
    });
  });
  if (!isPosted) isTaskWaiting_ = false;
}

bool ZRBatchSaver::keepIf(const std::function<bool(const Value& record)>& passes) {
  const ZRTurn::Scope storeTurn(storeTurn_);
  {
    const ZRTurn::Scope closeTurn(closeTurn_);
    std::list<ZRUnsavedBatch> closed = takeClosed();
    const bool wasClosed = !closed.empty();
    reopen(closed);
    current_.keepIf(passes);
    // For the task that waits to store them.
    if (wasClosed) guarded(kSave, "exception is %@", [this] { close(); });
  }
  const ZRBatchFile::Outcome outcome = file_.keepIf(passes);
  return outcome != ZRBatchFile::Outcome::Failed && outcome != ZRBatchFile::Outcome::TooLarge;
}

void ZRBatchSaver::close() {
  if (current_.empty()) return;
  // First, because the host's clock may save, too.
  Value requestTime = requestTimeNow();
  const ZRTurn::Scope turn(closeTurn_);
  const ZRSessionManager& sessions = ZRSessionManager::sharedSessionManager();
  Dictionary rest;
  rest.setObjectNilHandledForKey(std::move(requestTime), kBatchKeyRequestTime);
  if (auto session = sessions.getCurrentSessionInfoDict()) {
    rest.set(kBatchKeySession, withoutObjects(*std::move(session), kSave));
  }
  rest.set(kBatchKeySource, withoutObjects(sessions.getCurrentSessionSourceInfoArray(), kSave));
  std::list<ZRUnsavedBatch> closing = current_.take(std::move(rest));
  platform::MutexLock lock(mutex_);
  closed_.splice(closed_.end(), closing);
}

void ZRBatchSaver::storeClosed() {
  const ZRTurn::Scope turn(storeTurn_);
  std::list<ZRUnsavedBatch> batches = takeClosed();
  const std::uint64_t generation = current_.generation();
  std::erase_if(batches, [generation](const ZRUnsavedBatch& batch) { return batch.generation != generation; });
  if (batches.empty()) return;
  ZREventJournal* const journal = ZRConfigDataManager::sharedInstance().getEventJournal();
  Dictionary entries;
  ZRBatchFile::Outcome outcome = ZRBatchFile::Outcome::Failed;
  std::size_t tooLarge = 0;
  try {
    ZRSessionManager::sharedSessionManager().saveNewSession();
    // Counting what fits takes as long as storing it. So only what turns out too large is counted and split.
    for (const bool isSplit : {false, true}) {
      entries.clear();
      const std::unique_ptr<ZRJournalStore> kept = journal ? journal->beginStore() : nullptr;
      for (const ZRUnsavedBatch& batch : batches) tooLarge += addEntries(batch, isSplit, entries, kept.get());
      if (kept) kept->arm();
      outcome = file_.store(entries, kept.get());
      if (outcome != ZRBatchFile::Outcome::TooLarge) break;
    }
  } catch (...) {
    reopen(batches);
    throw;
  }
  if (outcome == ZRBatchFile::Outcome::Failed || outcome == ZRBatchFile::Outcome::TooLarge) {
    reopen(batches);
  } else if (journal) {
    for (const ZRUnsavedBatch& batch : batches) journal->released(batch.events);
  }
  if (outcome != ZRBatchFile::Outcome::Done) return;
  // Cleared while they were stored.
  if (current_.generation() != generation) (void)file_.remove(entries);
  for (; tooLarge > 0; --tooLarge) {
    logLine("Batch Events plist : an event is too large to be saved and is dropped");
  }
}

std::size_t ZRBatchSaver::addEntries(const ZRUnsavedBatch& batch, bool isSplit, Dictionary& entries,
                                     ZRJournalStore* kept) {
  const Value plain = withoutObjects(batch.events, kSave);
  const Array& events = *plain.asArray();
  std::size_t tooLarge = 0;
  for (std::size_t first = 0, count = 0; first < events.size(); first += std::max<std::size_t>(count, 1)) {
    count = isSplit ? platform::countForEntry(events, first, batch.rest) : events.size();
    if (count == 0) {
      ++tooLarge;
      continue;
    }
    const auto begin = events.begin() + static_cast<std::ptrdiff_t>(first);
    const std::string batchID = ZRAnalyticsUtils::createBatchIdentifier();
    Value entry = batch.rest;
    entry.mutableDictionary().set(kBatchKeyEvents, Array(begin, begin + static_cast<std::ptrdiff_t>(count)));
    entry.mutableDictionary().set(kBatchKeyBatchID, batchID);
    entries.set(batchID, std::move(entry));
    if (kept) kept->addBatch(batchID, batch.events, first, count);
  }
  return tooLarge;
}

void ZRBatchSaver::reopen(std::list<ZRUnsavedBatch>& batches) {
  const ZRTurn::Scope turn(closeTurn_);
  // Those that were closed meanwhile stay behind them.
  batches.splice(batches.end(), takeClosed());
  try {
    current_.putBack(batches);
  } catch (...) {
    platform::MutexLock lock(mutex_);
    closed_.splice(closed_.begin(), batches);
    throw;
  }
}

std::list<ZRUnsavedBatch> ZRBatchSaver::takeClosed() {
  platform::MutexLock lock(mutex_);
  return std::exchange(closed_, {});
}

}  // namespace zorvane
