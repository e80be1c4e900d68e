// The flush timer, the flush entries and the sync that sends every saved batch.

#include <algorithm>

#include "Platform/Formats/JSON.h"
#include "Platform/HostServices.h"
#include "Platform/Text/NumberText.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/EventManagement/BatchRequest.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreUtils.h"
#include "ZorvaneCore/ZorvaneCore.h"

namespace zorvane {
namespace {

constexpr std::string_view kFile = "ZREventsHandler";

platform::MainQueue& mainQueue() {
  return platform::hostServices().scheduler->mainQueue();
}

// Oldest first: by the milliseconds at the start of the identifier; batches of one millisecond in the file's order.
std::vector<ZRStoredBatch> oldestFirst(const ZRBatchTable& table) {
  std::vector<ZRStoredBatch> batches = table.batches();
  const auto milliseconds = [](const ZRStoredBatch& batch) { return platform::leadingInteger(batch.key).value_or(0); };
  std::stable_sort(batches.begin(), batches.end(), [&](const ZRStoredBatch& left, const ZRStoredBatch& right) {
    return milliseconds(left) < milliseconds(right);
  });
  return batches;
}

// The events of a stored batch as they stand in the file: decoded neither now nor when the request is encoded.
Value storedEvents(const ZRStoredBatch& batch, std::string_view key) {
  return platform::lazyJSON([value = batch.value, key](std::string& out) { value.appendJSONOfKey(key, out); },
                            [value = batch.value, key] { return key.empty() ? value.decode() : value.decodeKey(key); });
}

}  // namespace

// What the request completions of one sync share.
struct ZREventsHandler::SyncRun {
  bool background = false;
  bool reset = false;
  FlushCompletion completion;
  std::size_t total = 0;
  std::size_t attempts = 0;
  std::size_t successes = 0;
};

struct ZREventsHandler::SyncAnswer {
  bool success;
  bool attempted;
};

void ZREventsHandler::initiateTimer() {
  guarded({kFile, "initiateTimer", 108}, "exception is %@", [this] {
    const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
    if (!store.isPeriodicFlushEnabled() || !ZRCoreUtils::isSDKEnabled()) {
      logLine("Flush Timer Disabled");
      return;
    }
    const std::int64_t interval = store.getPeriodicFlushDuration();
    if (interval < 1) return;
    mainQueue().sync([this, interval] {
      periodicFlushTimer_ = mainQueue().startRepeatingTimer(static_cast<double>(interval), [this] { periodicSync(); });
    });
    logLine("Flush Timer Started");
  });
}

void ZREventsHandler::stopPeriodicSyncTimer() {
  guarded({kFile, "stopPeriodicSyncTimer", 128}, "exception is %@", [this] {
    if (periodicFlushTimer_ == 0) return;
    mainQueue().sync([this] { mainQueue().cancelTimer(periodicFlushTimer_.exchange(0)); });
    logLine("Flush Timer Stopped");
  });
}

void ZREventsHandler::periodicSync() {
  logLine("Periodic Flush Initiated");
  flushWithCompletionBlock(nullptr);
}

void ZREventsHandler::applicationEnteredForeground() {
  guarded({kFile, "applicationEnteredForeground", 76}, "exception in application did enter Foreground is %@",
          [this] { initiateTimer(); });
}

void ZREventsHandler::applicationEnteredBackground() {
  guarded({kFile, "applicationEnteredBackground", 84}, "exception in application did enter Background is %@",
          [this] { stopPeriodicSyncTimer(); });
}

void ZREventsHandler::disablePeriodicFlush() {
  guarded({kFile, "disablePeriodicFlush", 644}, "Exception : %@", [this] {
    stopPeriodicSyncTimer();
    ZRSDKConfiguration configuration = ZorvaneCore::sharedInstance().getDefaultSDKConfiguration();
    configuration.setAnalyticsDisablePeriodicFlush(true);
    ZorvaneCore::sharedInstance().updateSDKConfigWithCompletionBlock(configuration, nullptr);
  });
}

void ZREventsHandler::setFlushInterval(std::int64_t seconds) {
  guarded({kFile, "setFlushInterval", 664}, "Exception : %@", [this, seconds] {
    const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
    const std::int64_t minimum = store.getMinimumPeriodicFlushDurationLimit();
    // An interval equal to the minimum is refused too.
    if (minimum == 0 || seconds <= minimum || seconds == store.getPeriodicFlushDuration()) return;
    ZRSDKConfiguration configuration = ZorvaneCore::sharedInstance().getDefaultSDKConfiguration();
    configuration.setAnalyticsPeriodicFlushDuration(seconds);
    ZorvaneCore::sharedInstance().updateSDKConfigWithCompletionBlock(configuration, [this] {
      stopPeriodicSyncTimer();
      initiateTimer();
    });
  });
}

void ZREventsHandler::flushWithCompletionBlock(FlushCompletion completion) {
  guarded({kFile, "flushWithCompletionBlock", 325}, "exception in flush %@", [&] {
    saveCurrentBatch();
    flushEventsInBackgroundAndResetWithCompletionBlock(false, false, std::move(completion));
  });
}

void ZREventsHandler::flushEventsInBackgroundAndResetWithCompletionBlock(bool background, bool reset,
                                                                         FlushCompletion completion) {
  if (!ZRConfigDataManager::sharedInstance().isAccountActive() || !ZRCoreUtils::isSDKEnabled()) {
    logLine("Reports API Blocked");
    callBlock(completion, false, false);
    return;
  }
  const bool submitted =
      guarded({kFile, "flushEventsInBackgroundAndResetWithCompletionBlock", 411}, "Exception while syncing : %@", [&] {
        reports_serial_queue_.async([this, background, reset, completion] {
          reports_serial_queue_.assertCurrent();
          synchronousFlushInBackgroundAndResetWithCompletionBlock(background, reset, completion);
        });
      });
  if (!submitted) callBlock(completion, false, false);
}

void ZREventsHandler::synchronousFlushInBackgroundAndResetWithCompletionBlock(bool background, bool reset,
                                                                              const FlushCompletion& completion) {
  std::optional<SyncAnswer> answer;
  try {
    answer = startSync(background, reset, completion);
  } catch (...) {
    if (reset) {
      flushAttemptCompletedInBackgroundAndForReset(background, reset);
    } else {
      syncInProgress_ = false;
      guarded({kFile, "synchronousFlushInBackgroundAndResetWithCompletionBlock"}, "Exception while syncing : %@",
              [this] {
                reports_serial_queue_.assertCurrent();
                if (batches_) writeBatches();
              });
    }
    reportCurrentException({kFile, "synchronousFlushInBackgroundAndResetWithCompletionBlock", 538},
                           "Exception while syncing : %@");
    answer = SyncAnswer{false, true};
  }
  if (answer) callBlock(completion, answer->success, answer->attempted);
}

// What the completion is to be told at once; absent when it is called after the answers (or never).
std::optional<ZREventsHandler::SyncAnswer> ZREventsHandler::startSync(bool background, bool reset,
                                                                      const FlushCompletion& completion) {
  const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
  if (!store.getZrvAppID()) {
    logLine("Reports API not called. AppID not present");
    return SyncAnswer{false, false};
  }
  if (syncInProgress_) {
    if (reset) {
      setReportsResetInvocationInBackgroundAndResetWithCompletionBlock(background, reset, completion);
    } else {
      loadBatches();
    }
    return SyncAnswer{false, false};
  }
  syncInProgress_ = true;
  batches_.reset();
  knownBatches_.clear();
  loadBatches();
  if (!batches_ || batches_->empty()) {
    logLine("All the tracked events are already synced with Zorvane :]");
    syncInProgress_ = false;
    if (reset) cleanUp();
    return SyncAnswer{true, false};
  }
  const auto run = std::make_shared<SyncRun>(SyncRun{background, reset, completion, batches_->size()});
  for (const ZRStoredBatch& batch : oldestFirst(*batches_)) {
    logLine("Report Add request initiated:");
    if (!sendBatch(batch, run)) {
      // The sync stays in progress and nobody is told.
      logSyncFailure();
      break;
    }
  }
  return std::nullopt;
}

bool ZREventsHandler::sendBatch(const ZRStoredBatch& batch, const std::shared_ptr<SyncRun>& run) {
  const platform::LazyPropertyListValue& stored = batch.value;
  const std::string_view eventsKey = stored.isArray() ? std::string_view() : kBatchKeyEvents;
  Dictionary batchInfo;
  if (stored.isArray()) {
    batchInfo.set(kBatchKeyBatchID, batch.key);
    batchInfo.setObjectNilHandledForKey(requestTimeNow(), kBatchKeyRequestTime);
  } else {
    for (const std::string_view key : {kBatchKeyBatchID, kBatchKeyRequestTime, kBatchKeySession, kBatchKeySource}) {
      batchInfo.setObjectNilHandledForKey(stored.decodeKey(key), key);
    }
  }
  const std::size_t count = stored.countOfKey(eventsKey);
  if (count != 0) {
    batchInfo.set(kBatchKeyEvents, storedEvents(batch, eventsKey));
  } else {
    batchInfo.setObjectNilHandledForKey(eventsKey.empty() ? stored.decode() : stored.decodeKey(eventsKey),
                                        kBatchKeyEvents);
  }

  BatchRequest request = requestForBatch(batchInfo, count);
  const auto appID = ZRConfigDataManager::sharedInstance().getZrvAppID();
  if (!appID) return false;
  std::move(request).execute(*appID, [this, run, batchID = batch.key](bool success) {
    reports_serial_queue_.async([this, run, batchID, success] {
      reports_serial_queue_.assertCurrent();
      requestAnswered(run, batchID, success);
    });
  });
  return true;
}

void ZREventsHandler::requestAnswered(const std::shared_ptr<SyncRun>& run, const std::string& batchID, bool success) {
  ++run->attempts;
  guarded({kFile, "synchronousFlushInBackgroundAndResetWithCompletionBlock", 525},
          "exception while syncing the data : %@", [&] {
            reports_serial_queue_.assertCurrent();
            if (success) {
              ++run->successes;
              logLine("sync success from batch %@", {batchID});
              if (batches_) batches_->remove(batchID);
            } else {
              logLine("could not complete sync for batch %@, will try again later", {batchID});
            }
          });
  if (run->attempts != run->total) return;
  // An outer sync that ended meanwhile took the batches away. What this one was refused still stands in the file, and
  // stays.
  if (!batches_ && run->reset && run->successes != run->total) loadBatches();
  flushAttemptCompletedInBackgroundAndForReset(run->background, run->reset);
  callBlock(run->completion, run->successes == run->total, true);
}

void ZREventsHandler::flushAttemptCompletedInBackgroundAndForReset(bool /*background*/, bool reset) {
  guarded({kFile, "flushAttemptCompletedInBackgroundAndForReset", 572}, "Exception while syncing : %@", [&] {
    reports_serial_queue_.assertCurrent();
    syncInProgress_ = false;
    if (reset) {
      cleanUp();
    } else if (resetInvocation_) {
      // It may load the batches anew; what follows works on what it loaded.
      resetInvocation_();
      resetInvocation_ = nullptr;
    }
    const bool keysRemain = batches_ && !batches_->empty();
    if (keysRemain && reset) {
      logLine("sync unsuccessful on reset");
    } else if (keysRemain) {
      writeBatches();
      batches_.reset();
    } else {
      logLine("sync performed for all the batches successfully");
      writeBatches();
    }
  });
}

void ZREventsHandler::setReportsResetInvocationInBackgroundAndResetWithCompletionBlock(bool background, bool reset,
                                                                                       FlushCompletion completion) {
  resetInvocation_ = [this, background, reset, completion = std::move(completion)] {
    reports_serial_queue_.assertCurrent();
    synchronousFlushInBackgroundAndResetWithCompletionBlock(background, reset, completion);
  };
}

void ZREventsHandler::loadBatches() {
  ZRBatchFile::Outcome outcome = ZRBatchFile::Outcome::Done;
  auto loaded = batchFile_.load(outcome);
  if (!loaded) logBatchFileError();
  // A file that cannot be read at the moment says nothing against the batches that a running sync knows.
  if (outcome == ZRBatchFile::Outcome::Failed && batches_) return;
  batches_ = std::move(loaded);
  if (!batches_) return;
  for (const ZRStoredBatch& batch : batches_->batches()) {
    knownBatches_.insert(batch.key);
    if (batch.value.isDictionary() || batch.value.isArray()) continue;
    // Nothing in there can be sent, now or later; it goes with the next rewriting of the file.
    logLine("Batch Events plist : the entry %@ is no batch and is dropped", {batch.key});
    batches_->remove(batch.key);
  }
}

// Leaves in the file the batches still to be accepted, and those that were saved since they were loaded.
void ZREventsHandler::writeBatches() {
  const auto outcome =
      batchFile_.replaceKnown(batches_ ? batches_->batches() : std::vector<ZRStoredBatch>(), knownBatches_);
  switch (outcome) {
    case ZRBatchFile::Outcome::Done:
      break;
    case ZRBatchFile::Outcome::Removed:
      logLine("Batch Events plist deleted");
      break;
    case ZRBatchFile::Outcome::RemoveFailed:
      logLine("Error while deleting ZorvaneBatchEvents.plist : %@", {batchFile_.lastError()});
      break;
    case ZRBatchFile::Outcome::Unreadable:
    case ZRBatchFile::Outcome::Failed:
      logBatchFileError();
      break;
  }
}

}  // namespace zorvane
