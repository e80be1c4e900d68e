#include "ZRAnalytics/EventManagement/ZRReportRequest.h"

#include <utility>

#include "Platform/Files/DefaultsStore.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/Utils/ZRSignedRequest.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRCoreUtils.h"
#include "ZorvaneCore/ZRNetworkConfiguration.h"

namespace zorvane {
namespace {

// Companion extensions of the application read there who the user is.
void mirrorIdentifiers(const Dictionary& identifiers) {
  const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
  const auto group = store.getAppGroupID();
  const auto appID = store.getZrvAppID();
  if (!group || !appID) return;
  platform::DefaultsStore& shared = platform::groupDefaults(*group);
  const Value kept = shared.objectForKey(*appID);
  Dictionary mirrored = kept.isDictionary() ? *kept.asDictionary() : Dictionary();
  mirrored.set(kSharedDefaultsKeyIdentifiers, identifiers);
  if (!(kept == Value(mirrored))) shared.setObjectForKey(std::move(mirrored), *appID);
  (void)shared.synchronize();
}

}  // namespace

Dictionary reportAddBody(const Dictionary& batchInfo, std::size_t eventCount) {
  Dictionary body;
  body.setObjectNilHandledForKey(batchInfo.objectForKey(kBatchKeyEvents), kReportsKeyEventsList);
  body.set(kReportsKeyEventsCount, eventCount);
  if (const auto identifiers = ZRUserAttributesHandler::sharedHandler().getIdentifierDictionary()) {
    body.set(kReportsKeyIdentifiers, *identifiers);
    mirrorIdentifiers(*identifiers);
  }

  const Value requestTime = batchInfo.objectForKey(kBatchKeyRequestTime);
  const Value batchID = batchInfo.objectForKey(kBatchKeyBatchID);
  if (!ZRCoreUtils::getSDKUniqueIdForUser() || requestTime.isNil() || batchID.isNil()) return body;

  Dictionary meta{{kReportsKeyRequestTime, requestTime}, {kReportsKeyBatchID, batchID}};
  const Dictionary preferences = ZRAnalyticsUtils::getDevicePreferencesDictionaryForReportsAPI(true);
  if (!preferences.empty()) meta.set(kReportsKeyDevPreferences, preferences);
  meta.setObjectNilHandledForKey(batchInfo.objectForKey(kBatchKeySession), kReportsKeyMetaSession);
  meta.setObjectNilHandledForKey(batchInfo.objectForKey(kBatchKeySource), kReportsKeyMetaSource);
  if (ZRCoreUtils::getSDKUserDefault().boolForKey(kUserDefaultsKeyHasDeviceAddFailed)) {
    meta.set(kReportsKeyMetaDAR, "failure");
  }
  body.set(kReportsKeyMeta, std::move(meta));
  if (auto parameters = ZRNetworkConfiguration::getQueryParamsBodyDictForService(kServiceReportAdd)) {
    body.set(kReportsKeyQueryParams, *std::move(parameters));
  }
  return body;
}

bool sendReport(const Dictionary& batchInfo, std::size_t eventCount, std::function<void(bool success)> completion) {
  Dictionary body = reportAddBody(batchInfo, eventCount);
  auto appID = ZRConfigDataManager::sharedInstance().getZrvAppID();
  if (!appID) {
    logLine("Sync Failure\u203C\uFE0F");
    logLine("Please initialze the SDK Config with the AppID in applicationDidFinishLaunching");
    return false;
  }
  signedRequest(kServiceReportAdd, std::move(body), *std::move(appID))
      ->executeRequestWithCompletionBlock(
          [completion = std::move(completion)](bool success, const Value&) { completion(success); });
  return true;
}

}  // namespace zorvane
