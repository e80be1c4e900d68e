// The owner of tracked events, from the facade's hand-over to the service's acceptance.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "Platform/Dispatch/Queue.h"
#include "ZRAnalytics/EventManagement/ZRBatchFile.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Events are accepted, recorded and gathered in the current batch on one serial queue; a batch is saved to the batch
// file and sent as one request each; it leaves the file only after the service accepted it. Operations may be called
// from any thread unless they say otherwise. The record, the batch and the request: docs/formats.md.
class ZREventsHandler {
 public:
  // success: everything was accepted, or there was nothing to send. attempted: requests were made.
  using FlushCompletion = std::function<void(bool success, bool attempted)>;

  static ZREventsHandler& sharedInstance();

  // --- Acceptance and recording (ZREventsHandler.cpp)

  // The name should be text; anything else is dropped with a log line. Events of one thread are recorded in the order
  // of these calls. The completion is called on the event queue once the event is recorded; at once, on the caller's
  // thread, when the SDK is disabled; never when the event is rejected.
  void trackEvent(const Value& name);
  void trackEventWithProperties(const Value& name, std::shared_ptr<const ZRProperties> properties);
  void trackEventWithPropertiesWithCompletionBlock(const Value& name, std::shared_ptr<const ZRProperties> properties,
                                                   std::function<void()> completion);
  bool shouldEventBeTrackedWithName(const Value& name) const;
  // Whether the event is tracked even while the user has opted out of data tracking.
  bool shouldEventSkippedFromDataOptOut(std::string_view name) const;
  static Array getAnalyticsWhitelistedEvents();
  // Adds names to those tracked despite an opt-out; what is no text is ignored.
  void updateSDKWhiteListedEvents(const Array& names);
  // A new event record, stamped with the current time.
  Dictionary getEventDictForEventAndProperties(const Value& name, const ZRProperties* properties) const;

  // Read once, at construction.
  std::int64_t eventsBatchCountTreshold() const { return eventsBatchCountTreshold_; }
  // A copy of the current batch; absent before the first event and after each save.
  std::optional<Array> viewsInfoArray() const;

  // --- Batch store (ZREventsHandlerStore.cpp)

  // "ZorvaneBatchEvents.plist" in the documents directory.
  std::string eventsPlistFilePath() const { return batchFile_.path(); }
  // Moves the current batch into the batch file, under the current session and its sources. When the file cannot be
  // written, its events go back to the front of the current batch; that batch counts as full again when it has grown by
  // a batch's worth, and by a quarter.
  void saveCurrentBatch();
  // The saved batches; none without a file; absent when the file cannot be read.
  std::optional<ZRBatchTable> getBatches();
  void writeEventsToFileWithBatchID(const Value& events, const Value& batchID);
  void removeEventsPlistFile();

  // "zorvaneEvents.dat" in the documents directory: one JSON event a line, left by an older release.
  std::string oldDatFilePath() const;
  bool checkIfFileExists() const;
  Array getEventsFromDumpFile() const;
  void removeDatFile();
  // Sends the dump file's events as one batch and removes the file; when that fails they join the batch file.
  void syncToServerFromDumpFile();

  // Deletes both files and empties the current batch.
  void clearEventsdata();
  // Tells everybody that the user was reset.
  void cleanUp();

  // --- Flush and sync (ZREventsHandlerSync.cpp)

  void initiateTimer();
  void stopPeriodicSyncTimer();
  void periodicSync();
  void applicationEnteredForeground();
  void applicationEnteredBackground();
  // Stops the timer; the choice is kept over restarts.
  void disablePeriodicFlush();
  // Seconds; ignored unless above the remote minimum and different from the current interval. Kept over restarts.
  void setFlushInterval(std::int64_t seconds);

  // Saves the current batch on this thread, then sends all saved batches.
  void flushWithCompletionBlock(FlushCompletion completion);
  // Sends all saved batches. With reset, the user is reset after the answers. While another sync runs the completion is
  // called at once with (false, false), and a reset is done after that sync, which calls its completion again. Blocked
  // (account inactive, SDK disabled): (false, false) on this thread. The completion is called on the event queue
  // otherwise, and never when the application identifier vanishes while requests are being made.
  void flushEventsInBackgroundAndResetWithCompletionBlock(bool background, bool reset, FlushCompletion completion);

  // --- Request (ZREventsHandlerRequest.cpp)

  // The body of a report-add request. Mirrors the user's identifiers into the application group's defaults.
  Dictionary reportAddPayloadForBatchInfo(const Dictionary& batchInfo);

 private:
  struct SyncRun;
  struct BatchRequest;

  ZREventsHandler();

  void recordEvent(const Value& name, const ZRProperties* properties) ZR_REQUIRES(reports_serial_queue_);
  void checkForTriggersForEventAndEventDict(const Value& name, Dictionary eventDict) ZR_REQUIRES(reports_serial_queue_);
  void addEventToViewInfoWithEventDict(Dictionary eventDict) ZR_REQUIRES(reports_serial_queue_);

  Array takeCurrentBatch();
  // Those of a save that failed, in front of what has been recorded since.
  void returnToCurrentBatch(Array events);
  // Says a failure of the batch file once, until it changes.
  void logBatchFileError();

  void synchronousFlushInBackgroundAndResetWithCompletionBlock(bool background, bool reset,
                                                               const FlushCompletion& completion)
      ZR_REQUIRES(reports_serial_queue_);
  struct SyncAnswer;
  std::optional<SyncAnswer> startSync(bool background, bool reset, const FlushCompletion& completion)
      ZR_REQUIRES(reports_serial_queue_);
  // False when the application identifier is gone.
  bool sendBatch(const ZRStoredBatch& batch, const std::shared_ptr<SyncRun>& run) ZR_REQUIRES(reports_serial_queue_);
  void requestAnswered(const std::shared_ptr<SyncRun>& run, const std::string& batchID, bool success)
      ZR_REQUIRES(reports_serial_queue_);
  void flushAttemptCompletedInBackgroundAndForReset(bool background, bool reset) ZR_REQUIRES(reports_serial_queue_);
  void setReportsResetInvocationInBackgroundAndResetWithCompletionBlock(bool background, bool reset,
                                                                        FlushCompletion completion)
      ZR_REQUIRES(reports_serial_queue_);
  void loadBatches() ZR_REQUIRES(reports_serial_queue_);
  void writeBatches() ZR_REQUIRES(reports_serial_queue_);
  void logSyncFailure();

  BatchRequest requestForBatch(const Dictionary& batchInfo, std::optional<std::size_t> eventCount);

  const std::unique_ptr<platform::Queue> ownedQueue_;
  platform::Queue& reports_serial_queue_;
  const std::int64_t eventsBatchCountTreshold_;
  ZRBatchFile batchFile_;

  mutable platform::Mutex currentBatchMutex_;
  std::optional<Array> viewsInfoArray_ ZR_GUARDED_BY(currentBatchMutex_);
  // The number of events from which on the current batch is full, while those of a save that failed stand in it.
  std::optional<std::size_t> fullAfterFailure_ ZR_GUARDED_BY(currentBatchMutex_);
  std::string saidError_ ZR_GUARDED_BY(currentBatchMutex_);

  mutable platform::Mutex whitelistMutex_;
  Array sdkWhitelistedEvents_ ZR_GUARDED_BY(whitelistMutex_);

  // Set and cleared on the main thread; 0 means none.
  std::atomic<platform::TimerId> periodicFlushTimer_{0};

  bool syncInProgress_ ZR_GUARDED_BY(reports_serial_queue_) = false;
  // The batches still to be accepted; absent when nothing was loaded or the file could not be read.
  std::optional<ZRBatchTable> batches_ ZR_GUARDED_BY(reports_serial_queue_);
  // Every batch that the current sync has loaded. What is not among them was saved since and is not its to remove.
  std::unordered_set<std::string> knownBatches_ ZR_GUARDED_BY(reports_serial_queue_);
  // A reset flush that arrived while a sync was running.
  std::function<void()> resetInvocation_ ZR_GUARDED_BY(reports_serial_queue_);
};

}  // namespace zorvane
