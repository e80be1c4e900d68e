#include "ZRAnalytics/EventManagement/ZRSync.h"

#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/Formats/JSON.h"
#include "ZRAnalytics/EventManagement/ZREventsHandlerSupport.h"
#include "ZRAnalytics/EventManagement/ZRReportRequest.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/Utils/ZRSignedRequest.h"
#include "ZorvaneCore/ZRConfigDataManager.h"

namespace zorvane {

using eventshandler::kFile;

void ZRSync::flush(const ZRFlush& flush) {
  queue_.assertCurrent();
  // When the last response was lost, nothing else ends the sync.
  if (run_ && run_->isComplete()) end(*run_);
  std::optional<Result> result;
  std::optional<ZRFlush> parked;
  try {
    result = start(flush);
  } catch (...) {
    if (flush.reset) {
      parked = finish(true);
    } else {
      ledger_.abandon();
      guarded({kFile, "synchronousFlushInBackgroundAndResetWithCompletionBlock", 538}, "Exception while syncing : %@",
              [this] {
                queue_.assertCurrent();
                removeSettled();
              });
    }
    reportCurrentException({kFile, "synchronousFlushInBackgroundAndResetWithCompletionBlock", 538},
                           "Exception while syncing : %@");
    result = Result{false, true};
  }
  if (result) {
    complete(flush.completion, *result, parked);
  } else {
    isResetPending_ = ledger_.isResetPending();
  }
}

std::optional<ZRSync::Result> ZRSync::start(const ZRFlush& flush) {
  if (!ZRConfigDataManager::sharedInstance().getZrvAppID()) {
    logLine("Reports API not called. AppID not present");
    return Result{false, false};
  }
  const ZRSyncLedger::Arrival arrival = ledger_.arrive(flush);
  if (arrival == ZRSyncLedger::Arrival::Reload) (void)load();
  if (arrival != ZRSyncLedger::Arrival::Start) return Result{false, false};
  const unsigned cancels = cancels_;
  if (!isSendable_()) {
    ledger_.abandon();
    if (flush.reset) resetUser_();
    return Result{false, false};
  }

  const std::vector<ZRStoredBatch> batches = load();
  if (batches.empty()) {
    logLine("All the tracked events are already synced with Zorvane :]");
    ledger_.abandon();
    if (flush.reset) {
      // A parked reset runs inside finish() of the previous sync, which removes the settled batches afterwards.
      resetUser_();
    } else {
      removeSettled();
    }
    return Result{true, false};
  }
  const auto run = std::make_shared<ZRSyncRun>();
  run->flush = flush;
  run->total = batches.size();
  for (const ZRStoredBatch& batch : batches) {
    // Without an application identifier the sync stays running and its completion is never called.
    if (!send(batch, cancels, run)) break;
  }
  run_ = run;
  return std::nullopt;
}

std::vector<ZRStoredBatch> ZRSync::load() {
  auto loaded = file_.load();
  if (!loaded) return {};
  std::vector<std::string_view> ids;
  ids.reserve(loaded->size());
  for (const ZRStoredBatch& batch : *loaded) ids.push_back(batch.id());
  ledger_.load(ids);
  std::vector<ZRStoredBatch> sendable;
  for (const std::size_t position : ZRSyncLedger::oldestFirst(ids)) {
    const ZRStoredBatch& batch = (*loaded)[position];
    if (ledger_.isSettled(batch.id())) continue;
    if (batch.isBatch()) {
      sendable.push_back(batch);
      continue;
    }
    logLine("Batch Events plist : the entry %@ is no batch and is dropped", {batch.id()});
    ledger_.settle(batch.id());
  }
  return sendable;
}

Value ZRSync::cancellable(Value events, unsigned cancels) const {
  if (events.isNil()) return events;
  const auto write = [this, events, cancels](std::string& out) {
    if (cancels_ != cancels) throw ValueError("the events of the request were cleared");
    platform::appendJSON(events, out);
  };
  return platform::lazyJSON(write, [events] { return events; });
}

bool ZRSync::send(const ZRStoredBatch& batch, unsigned cancels, const std::shared_ptr<ZRSyncRun>& run) {
  logLine("Report Add request initiated:");
  ZRBatchParts parts = batch.parts();
  parts.events = cancellable(std::move(parts.events), cancels);
  if (batch.isBareArray()) parts.requestTime = requestTimeNow();
  return sendReport(std::move(parts), [this, run, batch](bool accepted, const Value& /*response*/) {
    try {
      queue_.async([this, run, batch, accepted] {
        queue_.assertCurrent();
        responseArrived(*run, batch.id(), accepted);
      });
    } catch (const std::bad_alloc&) {
      ++run->lost;
    }
  });
}

void ZRSync::responseArrived(ZRSyncRun& run, const std::string& batchID, bool accepted) {
  guarded({kFile, "synchronousFlushInBackgroundAndResetWithCompletionBlock", 525},
          "exception while syncing the data : %@", [&] {
            queue_.assertCurrent();
            ledger_.respond(run, batchID, accepted);
            logLine(
                accepted ? "sync success from batch %@" : "could not complete sync for batch %@, will try again later",
                {batchID});
          });
  if (run.isComplete()) end(run);
}

void ZRSync::end(const ZRSyncRun& run) {
  // Lives until the completion has been called.
  const std::shared_ptr<ZRSyncRun> kept = std::move(run_);
  const std::optional<ZRFlush> parked = finish(run.flush.reset);
  complete(run.flush.completion, {run.isSuccess(), true}, parked);
}

std::optional<ZRFlush> ZRSync::finish(bool reset) {
  std::optional<ZRFlush> parked;
  guarded({kFile, "flushAttemptCompletedInBackgroundAndForReset", 572}, "Exception while syncing : %@", [&] {
    queue_.assertCurrent();
    parked = ledger_.finish();
    if (reset) {
      resetUser_();
    } else if (parked) {
      flush(*std::exchange(parked, std::nullopt));
    }
    switch (ledger_.end(reset)) {
      case ZRSyncLedger::End::KeepAll:
        logLine("sync unsuccessful on reset");
        break;
      case ZRSyncLedger::End::RemoveAll:
        logLine("sync performed for all the batches successfully");
        [[fallthrough]];
      case ZRSyncLedger::End::KeepRefused:
        removeSettled();
        break;
    }
  });
  return parked;
}

void ZRSync::complete(const ZRFlushCompletion& completion, Result result, const std::optional<ZRFlush>& parked) {
  isResetPending_ = parked || ledger_.isResetPending();
  callBlock({kFile, "flushEventsInBackgroundAndResetWithCompletionBlock", 411}, "Exception while syncing : %@",
            completion, result.success, result.attempted);
  if (parked) flush(*parked);
}

void ZRSync::removeSettled() {
  const auto outcome = file_.remove(ledger_.settled(), platform::Durability::Eventual);
  if (!outcome) {
    logLine("Error while deleting ZorvaneBatchEvents.plist : %@", {outcome.error().message});
  } else if (outcome.value() == ZRBatchFile::Outcome::Removed) {
    logLine("Batch Events plist deleted");
  }
}

}  // namespace zorvane
