// The owner of tracked events, from the facade's hand-over to the service's acceptance.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Dispatch/Queue.h"
#include "ZRAnalytics/EventManagement/ZRBatchFile.h"
#include "ZRAnalytics/EventManagement/ZRBatchSaver.h"
#include "ZRAnalytics/EventManagement/ZRCurrentBatch.h"
#include "ZRAnalytics/EventManagement/ZRDumpFile.h"
#include "ZRAnalytics/EventManagement/ZRFlushTimer.h"
#include "ZRAnalytics/EventManagement/ZRSync.h"
#include "ZRAnalytics/Journal/ZREventJournal.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZRAnalytics/Utils/ZRTurn.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Events are accepted, recorded and gathered in the current batch on one serial queue. A full batch is saved to the
// batch file by a background task, in one write with others that fill meanwhile, and sent as one request. It leaves the
// file only after the service accepted it. Operations may be called from any thread unless they say otherwise, and
// throw nothing: errors are logged. The record, the batch and the request: docs/formats.md.
class ZREventsHandler {
 public:
  using FlushCompletion = ZRFlushCompletion;

  static ZREventsHandler& sharedInstance();

  // --- Acceptance and recording

  // The name must be text; any other is dropped with a log line. Events of one thread are recorded in call order. The
  // completion is called on the event queue, after the event was recorded, or dropped by an error or because the SDK
  // was disabled meanwhile. If the SDK is disabled already, it is called immediately on the caller's thread. It is
  // never called if the event is rejected or cannot be posted.
  void trackEvent(Value name);
  void trackEventWithProperties(Value name, std::shared_ptr<const ZRProperties> properties);
  void trackEventWithPropertiesWithCompletionBlock(Value name, std::shared_ptr<const ZRProperties> properties,
                                                   std::function<void()> completion);
  // The same for an event that the journal knows already; 0: it does not.
  void trackCalledEvent(Value name, std::shared_ptr<const ZRProperties> properties, ZREventJournal::Ticket ticket);
  bool shouldEventBeTrackedWithName(const Value& name) const;
  // Whether the user's choice allows the event; if not, the log says so.
  bool isTrackingAllowed(std::string_view name) const;
  // Whether the name is on the module's own list of events that are tracked despite an opt-out. The service's list is
  // separate.
  bool shouldEventSkippedFromDataOptOut(std::string_view name) const;
  static Array getAnalyticsWhitelistedEvents();
  // Adds names to those tracked despite an opt-out; what is no text is ignored.
  void updateSDKWhiteListedEvents(const Array& names);
  // A new event record, stamped with the current time; empty after an error.
  Dictionary getEventDictForEventAndProperties(const Value& name, const ZRProperties* properties) const;

  // The number of events that fills a batch; read once, at construction.
  std::int64_t eventsBatchCountTreshold() const { return currentBatch_.threshold(); }
  // A copy of the current batch; absent before the first event and after the batch was closed.
  std::optional<Array> viewsInfoArray() const;

  // Saves the events that an earlier launch left in its journal, and begins to keep one; does nothing if the core was
  // set up without. Call before a session begins and before the first sync.
  void openJournal();

  // --- Batch store

  // "ZorvaneBatchEvents.plist" in the documents directory.
  std::string eventsPlistFilePath() const { return batchFile_.path(); }
  // Moves the current batch into the batch file, with the current session and its sources. Full batches that are not
  // stored yet are stored, too (ZRBatchSaver::save).
  void saveCurrentBatch() { saver_.save(); }
  // The saved batches; none without a file; absent when the file cannot be read.
  std::optional<std::vector<ZRStoredBatch>> getBatches() { return batchFile_.load(); }
  void writeEventsToFileWithBatchID(const Value& events, const Value& batchID);
  void removeEventsPlistFile();

  // "zorvaneEvents.dat" in the documents directory: one JSON event a line, left by an older release.
  std::string oldDatFilePath() const { return dumpFile_.path(); }
  bool checkIfFileExists() const { return dumpFile_.exists(); }
  Array getEventsFromDumpFile() const { return dumpFile_.events(); }
  void removeDatFile() { dumpFile_.remove(); }
  // Removes the dump file and sends its events, one request for each of its parts (ZRDumpFile::parts); those that the
  // service refuses join the batch file. If another thread is doing that, waits until it has removed the file. After an
  // opt-out of this launch, which could not remove it, only removes it.
  void syncToServerFromDumpFile();

  // Deletes both files and empties the current batch.
  // A save in progress, or a refused dump-file request, does not bring events back.
  void clearEventsdata();
  // Drops events, also of the batch file, that were recorded since and may not be tracked any more, on the event queue.
  // Call after clearEventsdata and the choice of the user or the service.
  void dropOptedOutEvents();
  // Posts "ZRVUserReset", then clears the user's attributes and stored defaults.
  void cleanUp();

  // --- Flush and sync

  // The repeating flush timer (ZRFlushTimer), which flushes on the main thread. It stops in the background.
  void initiateTimer() { flushTimer_.start(); }
  void stopPeriodicSyncTimer() { flushTimer_.stop(); }
  void periodicSync();
  void applicationEnteredForeground(std::string_view notification = {});
  void applicationEnteredBackground(std::string_view notification = {});
  // Stops the timer; the choice is kept over restarts.
  void disablePeriodicFlush() { flushTimer_.disable(); }
  // Seconds; ignored unless above the remote minimum and different from the current interval. Kept over restarts.
  void setFlushInterval(std::int64_t seconds) { flushTimer_.setInterval(seconds); }

  // Saves the current batch on this thread, then sends all saved batches.
  void flushWithCompletionBlock(FlushCompletion completion);
  // Sends all saved batches; with reset, the user is reset after the responses. Blocked (account inactive, SDK
  // disabled): the completion is called with (false, false) on this thread; otherwise on the event queue, as
  // ZRSync::flush says. `background` changes nothing.
  void flushEventsInBackgroundAndResetWithCompletionBlock(bool background, bool reset, FlushCompletion completion);

  // Whether a reset flush is running or waits for a sync to end.
  bool isResetPending() const { return sync_.isResetPending(); }

  // The body of a report-add request. Mirrors the user's identifiers into the application group's defaults.
  Dictionary reportAddPayloadForBatchInfo(const Dictionary& batchInfo);

 private:
  ZREventsHandler();

  static Dictionary makeRecord(const Value& name, const ZRProperties* properties, Value&& plainAttributes);
  // An event on its way to the current batch.
  struct TrackedEvent {
    Value name;
    std::shared_ptr<const ZRProperties> properties;
    std::function<void()> completion;
    ZREventJournal::Ticket ticket = 0;
  };
  // Tells the journal, if one is given, and posts acceptEvent.
  void track(Value&& name, std::shared_ptr<const ZRProperties>&& properties, std::function<void()>&& completion,
             ZREventJournal::Ticket ticket, ZREventJournal* journal);
  void release(const TrackedEvent& event) const;
  void acceptEvent(TrackedEvent& event) ZR_REQUIRES(reports_serial_queue_);
  void recordAcceptedEvent(const TrackedEvent& event) ZR_REQUIRES(reports_serial_queue_);
  // False if it was dropped by an error.
  bool recordEvent(const TrackedEvent& event) ZR_REQUIRES(reports_serial_queue_);
  // Calls the delegates with a copy of the record.
  void checkForTriggersForEventAndEventDict(const Value& name, const Dictionary& record)
      ZR_REQUIRES(reports_serial_queue_);
  void addEventToViewInfoWithEventDict(Dictionary eventDict) ZR_REQUIRES(reports_serial_queue_);
  // Drops the events, also those of the file, that may not be tracked any more. False when the file could not be
  // written.
  bool dropDisallowed() ZR_REQUIRES(reports_serial_queue_);
  // The same for a sync that comes between an opt-out and dropOptedOutEvents.
  bool dropBeforeSync() ZR_REQUIRES(reports_serial_queue_);
  void sendDumpFile();
  // writeEventsToFileWithBatchID for events of that generation of the current batch.
  void storeEvents(const Value& events, const Value& batchID, std::uint64_t generation);

  const std::unique_ptr<platform::Queue> ownedQueue_;
  platform::Queue& reports_serial_queue_;
  // Null: none is kept.
  ZREventJournal* const journal_;
  ZRCurrentBatch currentBatch_;
  ZRBatchFile batchFile_;
  ZRBatchSaver saver_;
  ZRDumpFile dumpFile_;
  // Held by the thread that reads and removes the dump file.
  ZRTurn dumpTurn_;
  ZRFlushTimer flushTimer_;
  ZRSync sync_;
  // The generation of the current batch for which dropping is done. The maximum, which no batch has, if the handler
  // began when the application's choices could not be read.
  std::uint64_t dropped_ ZR_GUARDED_BY(reports_serial_queue_);

  mutable platform::Mutex whitelistMutex_;
  Array sdkWhitelistedEvents_ ZR_GUARDED_BY(whitelistMutex_);
};

}  // namespace zorvane
