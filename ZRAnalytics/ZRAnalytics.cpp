#include "ZRAnalytics/ZRAnalytics.h"

#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"
#include "ZRAnalytics/Utils/AppDelegateSwizzler/ZRAppDelegateAnalyticsProxy.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRDefaults.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/ZRFacadeSupport.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {

using namespace facade;

namespace {

// The source file in error reports.
constexpr char kFile[] = "ZRAnalytics";
constexpr char kSyncNowException[] = "SyncNow exception : %@";

}  // namespace

ZRAnalytics& ZRAnalytics::sharedInstance() {
  // The core keeps a weak reference, so a shared pointer must own the facade. It is never released.
  static const std::shared_ptr<ZRAnalytics>* const shared = [] {
    auto* facade = new std::shared_ptr<ZRAnalytics>(new ZRAnalytics);
    ZorvaneCore::sharedInstance().setAppIdUpdateDelegate(*facade);
    guarded({kFile, "init"}, "exception while initializing Analytics: %@", [&] {
      (*facade)->migrateSDKUserDefaultsInfo();
      (*facade)->addObserverForApplicationLifeCycle();
    });
    return facade;
  }();
  return **shared;
}

void ZRAnalytics::migrateSDKUserDefaultsInfo() {
  platform::DefaultsStore& standard = platform::standardDefaults();
  platform::DefaultsStore& own = ZRCoreUtils::getSDKUserDefault();
  for (const std::string_view key : {kUserDefaultsKeySDKVersion, kUserDefaultsKeyVersionInstallStatus,
                                     kUserDefaultsKeyModifiedUserAttrUniqueID, kUserDefaultsKeyIDFA}) {
    Value value = standard.objectForKey(key);
    if (value.isNil()) continue;
    own.setObjectForKey(std::move(value), key);
    standard.removeObjectForKey(key);
  }
  // Remove the keys from the old file only after the new file holds them, so that a kill or a full disk loses none; but
  // before the next launch, which would migrate old values over newer ones.
  own.precede(standard);
  if (own.writeChanges()) (void)standard.synchronize();
  (void)own.synchronize();
}

void ZRAnalytics::initializeAnalytics() {
  guarded({kFile, "initializeAnalytics"}, "exception while initializing Analytics: %@", [this] {
    if (ZRConfigDataManager::sharedInstance().getEventJournal()) ZREventsHandler::sharedInstance().openJournal();
    trackAdvertisingIdentifier();
    updateModules();
    platform::hostServices().scheduler->mainQueue().runOrPost([this] { configureAppDelegateProxy(); });
  });
}

void ZRAnalytics::configureAppDelegateProxy() {
  guarded({kFile, "configureAppDelegateProxy"}, "Exception while configuring app delegate proxy : %@", [] {
    if (!isAccountActive() || !ZRAppDelegateAnalyticsProxy::canSwizzleMethods()) return;
    logLine("Set proxy for Open URL callbacks");
    ZRAppDelegateAnalyticsProxy::sharedProxy().swizzleMethodsIfPossible();
  });
}

void ZRAnalytics::updateModules() {
  guarded({kFile, "updateModules"}, "exception in Analytics UpdateModules is %@", [] {
    if (!isAccountActive()) {
      logLine("Account Disabled");
      return;
    }
    ZRSessionManager::sharedSessionManager().appOpenedWithSourceArray({});
    ZREventsHandler& events = ZREventsHandler::sharedInstance();
    events.syncToServerFromDumpFile();
    events.flushEventsInBackgroundAndResetWithCompletionBlock(false, false, [](bool success, bool attempted) {
      if (!attempted) return;
      logLine(success ? "Report add successful for previous sessions"
                      : "Report add unsuccessful for previous sessions");
    });
    ZRUserAttributesHandler::applyStoredUniqueID();
  });
}

void ZRAnalytics::trackEventWithProperties(Value name, std::shared_ptr<const ZRProperties> properties) {
  ZREventJournal* journal = nullptr;
  ZREventJournal::Ticket ticket = 0;
  const bool isPosted = guarded({kFile, "trackEventWithProperties"}, "exception is %@", [&] {
    if (!ZRAnalyticsUtils::areGatesOpen()) return;
    // Now, so that the event is in the journal when this returns.
    journal = ZRConfigDataManager::sharedInstance().getEventJournal();
    if (journal) ticket = journal->called(name, properties);
    globalQueue(platform::Priority::Default)
        .asyncSoon([name = std::move(name), properties = std::move(properties), ticket]() mutable {
          guarded({kFile, "trackEventWithProperties"}, "exception is %@", [&] {
            ZREventsHandler::sharedInstance().trackCalledEvent(std::move(name), std::move(properties), ticket);
          });
        });
  });
  if (!isPosted && journal) journal->released(ticket);
}

void ZRAnalytics::trackEventBuilderPayload(const Value& name, const std::shared_ptr<const ZRPayloadBuilder>& builder) {
  guarded({kFile, "trackEventBuilderPayload"}, "exception is %@",
          [&] { trackEventWithProperties(name, builder ? builder->getProperties() : nullptr); });
}

void ZRAnalytics::flushWithCompletionBlock(std::function<void(bool)> completion) {
  guarded({kFile, "flushWithCompletionBlock"}, kSyncNowException, [&] {
    if (!isAccountActive()) return;
    globalQueue(platform::Priority::Background).async([completion = std::move(completion)] {
      logLine("Flush Initiated");
      guarded({kFile, "flushWithCompletionBlock"}, kSyncNowException, [&] {
        ZREventsHandler::sharedInstance().flushWithCompletionBlock([completion](bool success, bool /*attempted*/) {
          callBlock({kFile, "flushWithCompletionBlock"}, kSyncNowException, completion, success);
        });
      });
    });
  });
}

void ZRAnalytics::syncNow() {
  flushWithCompletionBlock(nullptr);
}

void ZRAnalytics::disablePeriodicFlush() {
  guarded({kFile, "disablePeriodicFlush"}, "exception is %@",
          [] { ZREventsHandler::sharedInstance().disablePeriodicFlush(); });
}

void ZRAnalytics::setFlushInterval(std::int64_t seconds) {
  guarded({kFile, "setFlushInterval"}, "exception is %@",
          [&] { ZREventsHandler::sharedInstance().setFlushInterval(seconds); });
}

void ZRAnalytics::processURL(const std::optional<URL>& url) {
  guarded({kFile, "processURL"}, "exception in processing URL : %@", [&] {
    if (!url || !isAccountActive()) return;
    if (ZRCoreUtils::isAppDelegateProxyEnabled() && ZRAnalyticsUtils::isAppDelegateProxyConfigured()) {
      // The proxy already forwards every opened URL.
      logLine("AppDelegate proxy is enabled.");
      return;
    }
    ZRSessionManager::processURL(*url);
  });
}

void ZRAnalytics::updateSourcesForCurrentSession(const std::optional<ZRSourceArray>& sources) {
  guarded({kFile, "updateSourcesForCurrentSession"}, "exception is %@",
          [&] { ZRSessionManager::sharedSessionManager().updateSourcesForCurrentSession(sources); });
}

std::shared_ptr<ZREventTriggerDelegate> ZRAnalytics::inappTriggerDelegate() const {
  return inappTriggerDelegate_.get().lock();
}

void ZRAnalytics::setInappTriggerDelegate(std::weak_ptr<ZREventTriggerDelegate> delegate) {
  inappTriggerDelegate_.set(std::move(delegate));
}

std::shared_ptr<ZREventTriggerDelegate> ZRAnalytics::messagingTriggerDelegate() const {
  return messagingTriggerDelegate_.get().lock();
}

void ZRAnalytics::setMessagingTriggerDelegate(std::weak_ptr<ZREventTriggerDelegate> delegate) {
  messagingTriggerDelegate_.set(std::move(delegate));
}

void ZRAnalytics::appIDChangeHandledWithCompletionBlock(std::function<void()> completion) {
  flushWithCompletionBlock([completion = std::move(completion)](bool /*success*/) {
    ZREventsHandler::sharedInstance().cleanUp();
    callBlock({kFile, "appIDChangeHandledWithCompletionBlock"}, "exception is %@", completion);
  });
}

void ZRAnalytics::zorvaneSDKStateUpdated() {
  guarded({kFile, "zorvaneSDKStateUpdated"}, "exception is %@", [] {
    ZRSessionManager& sessions = ZRSessionManager::sharedSessionManager();
    if (ZRCoreUtils::isSDKEnabled()) {
      sessions.reinitiateSession();
      return;
    }
    ZRUserAttributesHandler::sharedHandler().forgetUser();
    ZREventsHandler& events = ZREventsHandler::sharedInstance();
    events.clearEventsdata();
    events.dropOptedOutEvents();
    events.disablePeriodicFlush();
    removeFromDefaults(kUserDefaultsKeyIDFA);
    sessions.resetSession();
  });
}

}  // namespace zorvane
