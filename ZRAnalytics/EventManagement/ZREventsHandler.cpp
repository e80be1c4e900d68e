#include "ZRAnalytics/EventManagement/ZREventsHandler.h"

#include <algorithm>
#include <limits>
#include <list>
#include <utility>

#include "Platform/Files/FileSystem.h"
#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/EventManagement/ZREventsHandlerSupport.h"
#include "ZRAnalytics/EventManagement/ZRReportRequest.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRPlainValue.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/Utils/ZRSignedRequest.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRCoreUtils.h"
#include "ZorvaneCore/ZRDateUtils.h"

namespace zorvane {

using eventshandler::kFile;

namespace {

constexpr std::int64_t kDefaultBatchCount = 30;
constexpr char kFlush[] = "flushWithCompletionBlock";
constexpr ReportSite kMakeRecord{kFile, "getEventDictForEventAndProperties"};
constexpr ReportSite kDumpFileSync{kFile, "syncToServerFromDumpFile"};
constexpr char kTrackEvent[] = "trackEventWithPropertiesWithCompletionBlock";

std::int64_t batchCountFromConfiguration() {
  const std::int64_t count = ZRConfigDataManager::sharedInstance().getEventBatchCount();
  return count == 0 ? kDefaultBatchCount : count;
}

std::string inDocuments(std::string_view fileName) {
  return platform::joinPath(ZRCoreUtils::getDocumentsDirectoryPath(), fileName);
}

bool holds(const Array& names, std::string_view name) {
  return std::any_of(names.begin(), names.end(),
                     [name](const Value& held) { return held.isString() && *held.asString() == name; });
}

// Copied if others hold the properties, as they may change them.
Value plainAttributesOf(const std::shared_ptr<const ZRProperties>& properties) {
  if (!properties) return {};
  const Dictionary& plain = properties->getAttributesDict();
  if (properties.use_count() != 1) return plain;
  return Value::sharing({properties, &plain});
}

}  // namespace

ZREventsHandler& ZREventsHandler::sharedInstance() {
  static ZREventsHandler* const handler = new ZREventsHandler;
  return *handler;
}

ZREventsHandler::ZREventsHandler()
    : ownedQueue_(platform::hostServices().scheduler->makeSerialQueue("com.zorvane.analytics.datatracking")),
      reports_serial_queue_(*ownedQueue_),
      journal_(ZRConfigDataManager::sharedInstance().getEventJournal()),
      currentBatch_(batchCountFromConfiguration()),
      batchFile_(inDocuments("ZorvaneBatchEvents.plist"),
                 [](const std::string& failure) { logLine("Batch Events plist : %@", {failure}); }),
      saver_(currentBatch_, batchFile_,
             [this] { flushEventsInBackgroundAndResetWithCompletionBlock(false, false, nullptr); }),
      dumpFile_(inDocuments("zorvaneEvents.dat")),
      flushTimer_([this] { periodicSync(); }),
      sync_(
          reports_serial_queue_, batchFile_,
          [this] {
            reports_serial_queue_.assertCurrent();
            return dropBeforeSync();
          },
          [this] { cleanUp(); }),
      dropped_(ZRConfigDataManager::sharedInstance().areChoicesRead() ? 0 : std::numeric_limits<std::uint64_t>::max()),
      sdkWhitelistedEvents_(getAnalyticsWhitelistedEvents()) {
  const platform::HostServices& host = platform::hostServices();
  guarded({kFile, "init"}, "exception is %@", [&] { host.scheduler->mainQueue().async([this] { initiateTimer(); }); });
  host.notificationCenter->addObserver(platform::kWillEnterForegroundNotification,
                                       [this](std::string_view name) { applicationEnteredForeground(name); });
  host.notificationCenter->addObserver(platform::kDidEnterBackgroundNotification,
                                       [this](std::string_view name) { applicationEnteredBackground(name); });
}

void ZREventsHandler::trackEvent(Value name) {
  trackEventWithPropertiesWithCompletionBlock(std::move(name), nullptr, nullptr);
}

void ZREventsHandler::trackEventWithProperties(Value name, std::shared_ptr<const ZRProperties> properties) {
  trackEventWithPropertiesWithCompletionBlock(std::move(name), std::move(properties), nullptr);
}

void ZREventsHandler::trackEventWithPropertiesWithCompletionBlock(Value name,
                                                                  std::shared_ptr<const ZRProperties> properties,
                                                                  std::function<void()> completion) {
  track(std::move(name), std::move(properties), std::move(completion), 0, journal_);
}

void ZREventsHandler::trackCalledEvent(Value name, std::shared_ptr<const ZRProperties> properties,
                                       ZREventJournal::Ticket ticket) {
  track(std::move(name), std::move(properties), nullptr, ticket, nullptr);
}

void ZREventsHandler::track(Value&& name, std::shared_ptr<const ZRProperties>&& properties,
                            std::function<void()>&& completion, ZREventJournal::Ticket ticket,
                            ZREventJournal* journal) {
  bool enabled = true;
  const bool isPosted = guarded({kFile, kTrackEvent, 190}, "exception is %@", [&] {
    enabled = ZRCoreUtils::isSDKEnabled();
    if (!enabled) return;
    if (journal) ticket = journal->called(name, properties);
    reports_serial_queue_.async(
        [this, event = TrackedEvent{std::move(name), std::move(properties), std::move(completion), ticket}]() mutable {
          reports_serial_queue_.assertCurrent();
          acceptEvent(event);
        });
  });
  if (journal_ && !(isPosted && enabled)) journal_->released(ticket);
  if (!enabled) callBlock({kFile, kTrackEvent, 190}, "exception is %@", completion);
}

void ZREventsHandler::acceptEvent(TrackedEvent& event) {
  bool handled = false;
  bool rejected = false;
  // Posted again, so that the event is recorded after the tasks that the session check posted. The completion is
  // copied: if the task cannot be posted, it is still to be called.
  const auto record = [&] {
    reports_serial_queue_.async([this, accepted = TrackedEvent{std::move(event.name), std::move(event.properties),
                                                               event.completion, event.ticket}] {
      reports_serial_queue_.assertCurrent();
      recordAcceptedEvent(accepted);
    });
    handled = true;
  };
  guarded({kFile, kTrackEvent}, "exception is %@", [&] {
    if (journal_ && !journal_->read(event.ticket, event.name, event.properties)) return;
    rejected = !shouldEventBeTrackedWithName(event.name);
    if (rejected) return;
    ZRSessionManager::sharedSessionManager().checkSessionForEventWithPropertiesWithCompletionBlock(
        event.name, event.properties.get(), std::ref(record));
  });
  if (handled) return;
  release(event);
  // An error dropped the event. Call the completion all the same, or its caller waits forever.
  if (!rejected) callBlock({kFile, kTrackEvent}, "exception is %@", event.completion);
}

void ZREventsHandler::recordAcceptedEvent(const TrackedEvent& event) {
  bool rejected = false;
  bool recorded = false;
  guarded({kFile, kTrackEvent}, "exception is %@", [&] {
    reports_serial_queue_.assertCurrent();
    // The user or the service may have decided otherwise meanwhile.
    if (!ZRCoreUtils::isSDKEnabled()) return;
    rejected = !isTrackingAllowed(*event.name.asString());
    if (!rejected) recorded = recordEvent(event);
  });
  if (!recorded) release(event);
  if (!rejected) callBlock({kFile, kTrackEvent}, "exception is %@", event.completion);
}

bool ZREventsHandler::recordEvent(const TrackedEvent& event) {
  Dictionary record;
  guarded(kMakeRecord, "exception is %@",
          [&] { record = makeRecord(event.name, event.properties.get(), plainAttributesOf(event.properties)); });
  if (record.empty()) return false;
  checkForTriggersForEventAndEventDict(event.name, record);
  if (journal_) journal_->recorded(event.ticket, record);
  addEventToViewInfoWithEventDict(std::move(record));
  return true;
}

void ZREventsHandler::release(const TrackedEvent& event) const {
  if (journal_) journal_->released(event.ticket);
}

void ZREventsHandler::openJournal() {
  if (journal_) journal_->open(batchFile_);
}

std::optional<Array> ZREventsHandler::viewsInfoArray() const {
  std::optional<Array> events = currentBatch_.events();
  // Without the journal's tickets.
  if (journal_ && events) events = *withoutObjects(*std::move(events)).asArray();
  return events;
}

bool ZREventsHandler::shouldEventBeTrackedWithName(const Value& name) const {
  if (!name.isString()) {
    logLine("While tracking events, the name of the event has to be a NSString type");
    return false;
  }
  const std::string_view text = *name.asString();
  if (!isTrackingAllowed(text)) return false;
  if (ZRConfigDataManager::sharedInstance().isEventBlackListed(text)) {
    logLine("Blacklisted Event: %@", {name});
    return false;
  }
  return true;
}

bool ZREventsHandler::isTrackingAllowed(std::string_view name) const {
  const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
  if (store.isDataTrackingEnabled() || shouldEventSkippedFromDataOptOut(name) || store.isEventWhitelistedEvent(name)) {
    return true;
  }
  logLine("%@ not tracked as Data Tracking is opted out", {name});
  return false;
}

bool ZREventsHandler::shouldEventSkippedFromDataOptOut(std::string_view name) const {
  platform::MutexLock lock(whitelistMutex_);
  return holds(sdkWhitelistedEvents_, name);
}

Array ZREventsHandler::getAnalyticsWhitelistedEvents() {
  return {kEventNameSessionStart, kEventNameSessionEnd, kEventNameAppExit,      kEventNameLogout,
          kEventNameAppInstall,   kEventNameAppUpdate,  kEventNameAppReinstall, kEventNameUserAttributeAction};
}

void ZREventsHandler::updateSDKWhiteListedEvents(const Array& names) {
  platform::MutexLock lock(whitelistMutex_);
  for (const Value& name : names) {
    if (name.isString() && !holds(sdkWhitelistedEvents_, *name.asString())) sdkWhitelistedEvents_.push_back(name);
  }
}

Dictionary ZREventsHandler::getEventDictForEventAndProperties(const Value& name, const ZRProperties* properties) const {
  Dictionary record;
  guarded(kMakeRecord, "exception is %@", [&] {
    record = makeRecord(name, properties, properties ? Value(properties->getAttributesDict()) : Value());
  });
  return record;
}

Dictionary ZREventsHandler::makeRecord(const Value& name, const ZRProperties* properties, Value&& plainAttributes) {
  Dictionary record;
  record.reserve(5);  // seldom more
  record.set(kReportsKeyEventName, name);
  if (properties && !properties->getAttributesDict().empty()) {
    record.set(kReportsKeyEventAttrs, std::move(plainAttributes));
  }
  record.set(kReportsKeyGMT_Time, ZRDateUtils::getGMTtime());
  record.set(kReportsKeyDevice_Time, ZRDateUtils::getLocalTime());
  if (!properties) return record;

  Dictionary custom;
  const Array& timestamps = properties->getDateTimeAttributesArray();
  if (!timestamps.empty()) custom.set(kReportsKeyCustomTimestamp, timestamps);
  const Array& locations = properties->getLocationAttributesArray();
  if (!locations.empty()) custom.set(kReportsKeyCustomLocation, locations);
  if (!custom.empty()) record.set(kReportsKeyEventCustomAttrs, std::move(custom));
  if (properties->isNonInteractiveEvent()) record.set(kReportsKeyNonInteractive, 1);
  return record;
}

void ZREventsHandler::checkForTriggersForEventAndEventDict(const Value& name, const Dictionary& record) {
  const ZRAnalytics& facade = ZRAnalytics::sharedInstance();
  std::optional<Dictionary> eventDict;  // both delegates get the same copy
  const auto tell = [&](const std::shared_ptr<ZREventTriggerDelegate>& delegate) {
    if (!delegate) return;
    guarded({kFile, "checkForTriggersForEventAndEventDict"}, "exception is %@", [&] {
      if (!eventDict) eventDict = record;
      delegate->eventTrackedWithNameAndEventAttr(name, *eventDict);
    });
  };
  tell(facade.inappTriggerDelegate());
  // Read after the first call, which may have set another messaging delegate.
  tell(facade.messagingTriggerDelegate());
}

void ZREventsHandler::addEventToViewInfoWithEventDict(Dictionary eventDict) {
  const Value* const name = eventDict.find(kReportsKeyEventName);
  const bool isInstant =
      name && name->isString() && ZRConfigDataManager::sharedInstance().isEventInstantFlushEvent(*name->asString());
  const bool isFull = currentBatch_.append(std::move(eventDict));
  if (isInstant) {
    flushWithCompletionBlock(nullptr);
  } else if (isFull) {
    saver_.saveSoon();
  }
}

// --- Batch store

void ZREventsHandler::writeEventsToFileWithBatchID(const Value& events, const Value& batchID) {
  storeEvents(events, batchID, currentBatch_.generation());
}

void ZREventsHandler::storeEvents(const Value& events, const Value& batchID, std::uint64_t generation) {
  guarded({kFile, "writeEventsToFileWithBatchID", 708}, "Exception : %@", [&] {
    Dictionary batches;
    batches.setObjectNilHandledForKey(withoutObjects(events), batchID.description());
    const ZRBatchFile::Outcome outcome = batchFile_.store(batches);
    const bool isStored = outcome == ZRBatchFile::Outcome::Done || outcome == ZRBatchFile::Outcome::Unreadable;
    if (!isStored && events.isArray()) {
      std::list<ZRUnsavedBatch> unsaved;
      unsaved.push_back({*events.asArray(), generation, {}});
      currentBatch_.putBack(unsaved);
    }
    // Cleared while they were stored.
    if (outcome == ZRBatchFile::Outcome::Done && currentBatch_.generation() != generation) {
      (void)batchFile_.remove(batches);
    }
  });
}

void ZREventsHandler::removeEventsPlistFile() {
  // A file that a sync removed could come back, so the removal is repeated.
  const bool isThere = batchFile_.exists();
  const auto removed = batchFile_.removeAll();
  if (!removed) {
    logLine("Error while deleting ZorvaneBatchEvents.plist : %@", {removed.error().message});
  } else if (isThere) {
    logLine("Batch Events plist deleted");
  }
}

void ZREventsHandler::syncToServerFromDumpFile() {
  guarded({kFile, "syncToServerFromDumpFile"}, "exception is %@", [this] { sendDumpFile(); });
}

void ZREventsHandler::sendDumpFile() {
  const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
  if (!store.isAccountActive() || !checkIfFileExists() || !store.areChoicesRead()) return;
  if (!store.getZrvAppID()) {
    logLine("Reports API not called. AppID not present");
    return;
  }
  const unsigned cancels = sync_.cancels();
  const std::uint64_t generation = currentBatch_.generation();
  // An opt-out of this launch could not remove it.
  if (generation != 0 && ZRAnalyticsUtils::isOptedOut()) return removeDatFile();
  std::vector<ZRDumpFile::Part> parts;
  {
    const ZRTurn::Scope turn(dumpTurn_);
    parts = dumpFile_.parts();
    for (ZRDumpFile::Part& part : parts) {
      part.batch.set(kBatchKeyBatchID, ZRAnalyticsUtils::createBatchIdentifier());
      part.batch.setObjectNilHandledForKey(requestTimeNow(), kBatchKeyRequestTime);
    }
    if (parts.empty()) return;
    removeDatFile();
  }
  for (const ZRDumpFile::Part& part : parts) {
    logLine("Report Add request initiated:");
    const auto answered = [this, batch = part.batch, generation, cancels](bool success, const Value& /*response*/) {
      guarded(kDumpFileSync, "exception is %@", [&] {
        if (success) {
          logLine("sync success from data file");
          return;
        }
        logLine("could not complete sync from dump file, will try again later");
        if (sync_.cancels() != cancels) return;
        storeEvents(batch.objectForKey(kBatchKeyEvents).asObject()->plainValue(), batch.objectForKey(kBatchKeyBatchID),
                    generation);
      });
    };
    bool hasAppID = true;
    const bool sent = guarded(kDumpFileSync, "exception is %@", [&] {
      ZRBatchParts report = partsOfBatch(part.batch, part.count);
      report.events = sync_.cancellable(std::move(report.events), cancels);
      hasAppID = sendReport(std::move(report), answered);
    });
    if (!sent) answered(false, {});
    if (!hasAppID) return;
  }
}

void ZREventsHandler::clearEventsdata() {
  // First, so that a save that is under way notices.
  currentBatch_.clear();
  sync_.cancelUnsent();
  if (journal_) journal_->clear();
  removeDatFile();
  removeEventsPlistFile();
}

void ZREventsHandler::dropOptedOutEvents() {
  sync_.cancelUnsent();
  guarded({kFile, "dropOptedOutEvents"}, "exception is %@", [this] {
    reports_serial_queue_.async([this, generation = currentBatch_.generation()] {
      reports_serial_queue_.assertCurrent();
      if (ZRAnalyticsUtils::isOptedOut() && dropDisallowed()) dropped_ = std::max(dropped_, generation);
    });
  });
}

// The choice is in effect before it is on the disk, and only then dropOptedOutEvents is called.
bool ZREventsHandler::dropBeforeSync() {
  if (!ZRConfigDataManager::sharedInstance().areChoicesRead()) return false;
  const std::uint64_t generation = currentBatch_.generation();
  if (generation == dropped_ || !ZRAnalyticsUtils::isOptedOut()) return true;
  if (!dropDisallowed()) return false;
  dropped_ = generation;
  return true;
}

bool ZREventsHandler::dropDisallowed() {
  bool isDone = false;
  guarded({kFile, "dropDisallowed"}, "exception is %@", [&] {
    isDone = saver_.keepIf([this](const Value& record) {
      const Dictionary* event = record.asDictionary();
      const Value name = event ? event->objectForKey(kReportsKeyEventName) : Value();
      const bool isKept = ZRCoreUtils::isSDKEnabled() && name.isString() && isTrackingAllowed(*name.asString());
      if (!isKept && journal_) journal_->released({record});
      return isKept;
    });
  });
  return isDone;
}

void ZREventsHandler::cleanUp() {
  platform::hostServices().notificationCenter->post(kNotificationNameUserReset);
  ZRUserAttributesHandler& attributes = ZRUserAttributesHandler::sharedHandler();
  attributes.clearUserAttributesData();
  attributes.clearUserDefaultsOnLogout();
}

// --- Flush and sync

void ZREventsHandler::periodicSync() {
  logLine("Periodic Flush Initiated");
  flushWithCompletionBlock(nullptr);
}

void ZREventsHandler::applicationEnteredForeground(std::string_view /*notification*/) {
  guarded({kFile, "applicationEnteredForeground", 76}, "exception in application did enter Foreground is %@",
          [this] { initiateTimer(); });
}

void ZREventsHandler::applicationEnteredBackground(std::string_view /*notification*/) {
  guarded({kFile, "applicationEnteredBackground", 84}, "exception in application did enter Background is %@",
          [this] { stopPeriodicSyncTimer(); });
}

void ZREventsHandler::flushWithCompletionBlock(FlushCompletion completion) {
  guarded({kFile, kFlush, 325}, "exception in flush %@", [&] {
    saveCurrentBatch();
    flushEventsInBackgroundAndResetWithCompletionBlock(
        false, false, [completion = std::move(completion)](bool success, bool attempted) {
          callBlock({kFile, kFlush, 325}, "exception in flush %@", completion, success, attempted);
        });
  });
}

void ZREventsHandler::flushEventsInBackgroundAndResetWithCompletionBlock(bool /*background*/, bool reset,
                                                                         FlushCompletion completion) {
  constexpr ReportSite kSite{kFile, "flushEventsInBackgroundAndResetWithCompletionBlock", 411};
  constexpr char kPattern[] = "Exception while syncing : %@";
  bool submitted = false;
  guarded(kSite, kPattern, [&] {
    if (!ZRAnalyticsUtils::areGatesOpen()) {
      logLine("Reports API Blocked");
      return;
    }
    reports_serial_queue_.async([this, flush = ZRFlush{reset, completion}] {
      reports_serial_queue_.assertCurrent();
      sync_.flush(flush);
    });
    submitted = true;
  });
  if (!submitted) callBlock(kSite, kPattern, completion, false, false);
}

Dictionary ZREventsHandler::reportAddPayloadForBatchInfo(const Dictionary& batchInfo) {
  const Value events = batchInfo.objectForKey(kBatchKeyEvents);
  return reportAddBody(partsOfBatch(batchInfo, events.isArray() ? events.asArray()->size() : 0));
}

}  // namespace zorvane
