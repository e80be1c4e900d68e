// The facade's operations for the installation and the device: install and update, registration, device attributes.

#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/DeviceAttribute/ZRDeviceAttributesHandler.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRDefaults.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/Utils/ZRSignedRequest.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZRAnalytics/ZRFacadeSupport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRCoreUtils.h"
#include "ZorvaneCore/ZRNetworkConfiguration.h"

namespace zorvane {

using namespace facade;

namespace {

// The source file in error reports.
constexpr char kFile[] = "ZRAnalyticsDevice";
constexpr std::int64_t kStatusInstall = 0;
constexpr std::int64_t kStatusUpdate = 1;

}  // namespace

void ZRAnalytics::appStatus(std::int64_t status) {
  guarded({kFile, "appStatus"}, "Exception while tracking  INSTALL/UPDATE %@", [&] {
    if (!isAccountActive()) return;
    const std::string version = ZRCoreUtils::appVersion();
    const Value stored = ZRCoreUtils::getSDKUserDefault().objectForKey(kUserDefaultsKeyVersionInstallStatus);
    if (stored == Value(version)) return;
    keepInDefaults(version, kUserDefaultsKeyVersionInstallStatus);
    smartTriggerForAppStatus(stored.isNil() ? status : kStatusUpdate);
  });
}

void ZRAnalytics::smartTriggerForAppStatus(std::int64_t status) {
  guarded({kFile, "smartTriggerForAppStatus"}, "exception is %@", [&] {
    if (status != kStatusInstall) {
      ZREventsHandler::sharedInstance().trackEvent(kEventNameAppUpdate);
      return;
    }
    // At most once per installation.
    if (ZRCoreUtils::installRegistered()) return;
    ZRCoreUtils::registerInstall();
    ZREventsHandler::sharedInstance().trackEvent(kEventNameAppInstall);
  });
}

void ZRAnalytics::trackSDKVersion() {
  guarded({kFile, "trackSDKVersion"}, "exception is %@", [this] {
    const std::string version = ZRCoreUtils::getZorvaneSDKVersion();
    const Value stored = ZRCoreUtils::getSDKUserDefault().objectForKey(kUserDefaultsKeySDKVersion);
    if (stored == Value(version)) return;
    // A change that a power loss undoes is stored once more. But without any version a reinstallation would be tracked.
    keepInDefaults(version, kUserDefaultsKeySDKVersion,
                   stored.isNil() ? platform::Durability::Lasting : platform::Durability::Eventual);
    if (stored.isNil()) trackReinstall();
  });
}

void ZRAnalytics::trackReinstall() {
  guarded({kFile, "trackReinstall"}, "exception is %@", [] {
    if (!ZorvaneCore::sharedInstance().isDeviceUniqueIDPresentInKeyChain()) return;
    auto properties = std::make_shared<ZRProperties>();
    properties->setNonInteractive();
    ZREventsHandler::sharedInstance().trackEventWithProperties(kEventNameAppReinstall, std::move(properties));
  });
}

void ZRAnalytics::pushTokenUpdated() {
  updateDeviceWithCompletion([](bool success) {
    if (success) logLine("Device Add on PushToken successful.");
  });
}

void ZRAnalytics::updateDeviceWithCompletion(std::function<void(bool)> completion) {
  guarded({kFile, "updateDeviceWithCompletion"}, "Exception in device add call %@", [&] {
    if (!ZRAnalyticsUtils::areGatesOpen()) {
      logLine("updateDeviceWithCompletion: SDK Blocked");
      return;
    }
    const auto appID = ZRConfigDataManager::sharedInstance().getZrvAppID();
    if (!appID) {
      logLine("updateDeviceWithCompletion: App ID is not present.");
      return;
    }
    // Before anything is sent: a request that never completes counts as failed. A new unique identifier is written with
    // it, in one write.
    ZRCoreUtils::getSDKUserDefault().setObjectForKey(true, kUserDefaultsKeyHasDeviceAddFailed);
    (void)ZRCoreUtils::getSDKUniqueIdForUser();
    (void)ZRCoreUtils::getSDKUserDefault().synchronize();
    std::optional<Dictionary> body = getDeviceAddRequestBody();
    if (!body) {
      logLine("Device Add request not made as Body is nil");
      return;
    }
    if (body->empty()) return;
    signedRequest(kServiceDeviceAdd, *std::move(body), *appID)
        ->executeRequestWithCompletionBlock([completion = std::move(completion)](bool success, const Value&) {
          guarded({kFile, "updateDeviceWithCompletion"}, "Exception in device add call %@", [&] {
            // If a power loss undoes this, the device is registered again.
            keepInDefaults(!success, kUserDefaultsKeyHasDeviceAddFailed, platform::Durability::Eventual);
            if (completion) completion(success);
          });
        });
  });
}

std::optional<Dictionary> ZRAnalytics::getDeviceAddRequestBody() const {
  std::optional<Dictionary> body;
  guarded({kFile, "getDeviceAddRequestBody"}, "Exception in device add call %@", [&] { body = deviceAddBody(); });
  return body;
}

std::optional<Dictionary> ZRAnalytics::deviceAddBody() {
  const Value requestTime = requestTimeNow();
  Dictionary body;
  if (requestTime.isNil() || !ZRCoreUtils::getSDKUniqueIdForUser()) return body;

  const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
  if (store.isDataTrackingEnabled()) {
    const std::string vendorID = store.isIDFVTrackingEnabled() ? ZRCoreUtils::getIDFV() : std::string();
    if (!vendorID.empty()) body.set("IDFV", vendorID);
    const auto advertisingID = store.isIDFATrackingEnabled() ? ZRAnalyticsUtils::advertiserID() : std::nullopt;
    if (advertisingID && !advertisingID->empty()) body.set(kUserAttrNameIDFA, *advertisingID);
  }
  body.set(kReportsKeyMeta,
           Dictionary{{kReportsKeyDevPreferences, ZRAnalyticsUtils::getDevicePreferencesDictionaryForReportsAPI(false)},
                      {kReportsKeyRequestTime, requestTime},
                      {kReportsKeyBatchID, ZRAnalyticsUtils::createBatchIdentifier()}});
  auto parameters = ZRNetworkConfiguration::getQueryParamsBodyDictForService(kServiceDeviceAdd);
  if (!parameters) {
    logLine("Query Params are nil");
    return std::nullopt;
  }
  body.set(kReportsKeyQueryParams, *std::move(parameters));
  return body;
}

void ZRAnalytics::setDeviceModelAttributes() {
  guarded({kFile, "setDeviceModelAttributes"}, "exception is %@", [] {
    if (ZRConfigDataManager::sharedInstance().isDataTrackingEnabled()) {
      ZRDeviceAttributesHandler::sharedInstance().setDeviceModelAttributes();
    }
  });
}

void ZRAnalytics::trackAdvertisingIdentifier() {
  guarded({kFile, "trackAdvertisingIdentifier"}, "Exception : %@", [this] {
    if (!ZRConfigDataManager::sharedInstance().isIDFATrackingEnabled()) return;
    const auto identifier = ZRAnalyticsUtils::advertiserID();
    if (!identifier || ZRAnalyticsUtils::getSavedAdvertisingID() == Value(*identifier)) return;
    setUserAttributeForKey(*identifier, kUserAttrNameIDFA);
    ZRDeviceAttributesHandler::sharedInstance().setDeviceAttributeForKey(*identifier, kUserAttrNameIDFA);
    ZRAnalyticsUtils::saveAdvertisingID(identifier);
  });
}

Value ZRAnalytics::getTrackedIDFA() const {
  return ZRAnalyticsUtils::getSavedAdvertisingID();
}

}  // namespace zorvane
