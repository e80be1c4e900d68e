#include "ZRAnalytics/EventManagement/ZREventsHandler.h"

#include <algorithm>

#include "Platform/Files/FileSystem.h"
#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreUtils.h"
#include "ZorvaneCore/ZRDateUtils.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"

namespace zorvane {
namespace {

constexpr std::string_view kFile = "ZREventsHandler";
constexpr std::int64_t kDefaultBatchCount = 30;

std::int64_t batchCountFromConfiguration() {
  const std::int64_t count = ZRConfigDataManager::sharedInstance().getEventBatchCount();
  return count == 0 ? kDefaultBatchCount : count;
}

bool holds(const Array& names, std::string_view name) {
  return std::any_of(names.begin(), names.end(),
                     [name](const Value& held) { return held.isString() && *held.asString() == name; });
}

}  // namespace

ZREventsHandler& ZREventsHandler::sharedInstance() {
  static ZREventsHandler* const handler = new ZREventsHandler;
  return *handler;
}

ZREventsHandler::ZREventsHandler()
    : ownedQueue_(platform::hostServices().scheduler->makeSerialQueue("com.zorvane.analytics.datatracking")),
      reports_serial_queue_(*ownedQueue_),
      eventsBatchCountTreshold_(batchCountFromConfiguration()),
      batchFile_(platform::joinPath(ZRCoreUtils::getDocumentsDirectoryPath(), "ZorvaneBatchEvents.plist")),
      sdkWhitelistedEvents_(getAnalyticsWhitelistedEvents()) {
  const platform::HostServices& host = platform::hostServices();
  host.scheduler->mainQueue().async([this] { initiateTimer(); });
  host.notificationCenter->addObserver(platform::kWillEnterForegroundNotification,
                                       [this](std::string_view) { applicationEnteredForeground(); });
  host.notificationCenter->addObserver(platform::kDidEnterBackgroundNotification,
                                       [this](std::string_view) { applicationEnteredBackground(); });
}

void ZREventsHandler::trackEvent(const Value& name) {
  trackEventWithPropertiesWithCompletionBlock(name, nullptr, nullptr);
}

void ZREventsHandler::trackEventWithProperties(const Value& name, std::shared_ptr<const ZRProperties> properties) {
  trackEventWithPropertiesWithCompletionBlock(name, std::move(properties), nullptr);
}

void ZREventsHandler::trackEventWithPropertiesWithCompletionBlock(const Value& name,
                                                                  std::shared_ptr<const ZRProperties> properties,
                                                                  std::function<void()> completion) {
  if (!ZRCoreUtils::isSDKEnabled()) {
    callBlock(completion);
    return;
  }
  guarded({kFile, "trackEventWithPropertiesWithCompletionBlock", 190}, "exception is %@", [&] {
    reports_serial_queue_.async([this, name, properties = std::move(properties), completion = std::move(completion)] {
      reports_serial_queue_.assertCurrent();
      if (!shouldEventBeTrackedWithName(name)) return;
      ZRSessionManager::sharedSessionManager().checkSessionForEventWithPropertiesWithCompletionBlock(
          name, properties.get(), [&] {
            // A further task, so that the event lands behind whatever the session check queued.
            reports_serial_queue_.async([this, name, properties, completion] {
              reports_serial_queue_.assertCurrent();
              recordEvent(name, properties.get());
              callBlock(completion);
            });
          });
    });
  });
}

void ZREventsHandler::recordEvent(const Value& name, const ZRProperties* properties) {
  Dictionary record = getEventDictForEventAndProperties(name, properties);
  checkForTriggersForEventAndEventDict(name, record);
  addEventToViewInfoWithEventDict(std::move(record));
}

bool ZREventsHandler::shouldEventBeTrackedWithName(const Value& name) const {
  if (!name.isString()) {
    logLine("While tracking events, the name of the event has to be a NSString type");
    return false;
  }
  const std::string& text = *name.asString();
  const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
  if (!store.isDataTrackingEnabled() && !shouldEventSkippedFromDataOptOut(text) &&
      !store.isEventWhitelistedEvent(text)) {
    logLine("%@ not tracked as Data Tracking is opted out", {name});
    return false;
  }
  if (store.isEventBlackListed(text)) {
    logLine("Blacklisted Event: %@", {name});
    return false;
  }
  return true;
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
  record.reserve(6);
  record.set(kReportsKeyEventName, name);
  if (properties && !properties->getAttributesDict().empty()) {
    record.set(kReportsKeyEventAttrs, properties->getAttributesDict());
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

void ZREventsHandler::checkForTriggersForEventAndEventDict(const Value& name, Dictionary eventDict) {
  const ZRAnalytics& facade = ZRAnalytics::sharedInstance();
  const auto tell = [&](const std::shared_ptr<ZREventTriggerDelegate>& delegate) {
    if (!delegate) return;
    guarded({kFile, "checkForTriggersForEventAndEventDict"}, "exception is %@",
            [&] { delegate->eventTrackedWithNameAndEventAttr(name, eventDict); });
  };
  tell(facade.inappTriggerDelegate());
  // Asked for only now: the first may have changed who the second is.
  tell(facade.messagingTriggerDelegate());
}

void ZREventsHandler::addEventToViewInfoWithEventDict(Dictionary eventDict) {
  const Value name = validObjectForKey(eventDict, kReportsKeyEventName);
  bool batchIsFull = false;
  {
    platform::MutexLock lock(currentBatchMutex_);
    if (!viewsInfoArray_) viewsInfoArray_.emplace();
    viewsInfoArray_->emplace_back(std::move(eventDict));
    // Compared as unsigned numbers: a negative threshold is never reached.
    const auto threshold = static_cast<std::uint64_t>(eventsBatchCountTreshold_);
    batchIsFull = viewsInfoArray_->size() >= std::max<std::uint64_t>(threshold, fullAfterFailure_.value_or(0));
  }
  if (batchIsFull ||
      (name.isString() && ZRConfigDataManager::sharedInstance().isEventInstantFlushEvent(*name.asString()))) {
    flushWithCompletionBlock(nullptr);
  }
}

std::optional<Array> ZREventsHandler::viewsInfoArray() const {
  platform::MutexLock lock(currentBatchMutex_);
  return viewsInfoArray_;
}

}  // namespace zorvane
