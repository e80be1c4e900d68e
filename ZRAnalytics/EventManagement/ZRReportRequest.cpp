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
  if (kept != Value(mirrored)) shared.setObjectForKey(std::move(mirrored), *appID);
  (void)shared.synchronize();
}

}  // namespace

ZRBatchParts partsOfBatch(const Dictionary& batch, std::size_t eventCount) {
  return {.events = batch.objectForKey(kBatchKeyEvents),
          .eventCount = eventCount,
          .batchID = batch.objectForKey(kBatchKeyBatchID),
          .requestTime = batch.objectForKey(kBatchKeyRequestTime),
          .session = batch.objectForKey(kBatchKeySession),
          .source = batch.objectForKey(kBatchKeySource)};
}

Dictionary reportAddBody(ZRBatchParts&& batch) {
  Dictionary body;
  body.reserve(5);
  body.setObjectNilHandledForKey(std::move(batch.events), kReportsKeyEventsList);
  body.set(kReportsKeyEventsCount, batch.eventCount);
  if (auto identifiers = ZRUserAttributesHandler::sharedHandler().getIdentifierDictionary()) {
    mirrorIdentifiers(*identifiers);
    body.set(kReportsKeyIdentifiers, *std::move(identifiers));
  }
  if (!ZRCoreUtils::getSDKUniqueIdForUser() || batch.requestTime.isNil() || batch.batchID.isNil()) return body;

  Dictionary meta;
  meta.reserve(6);
  meta.set(kReportsKeyRequestTime, std::move(batch.requestTime));
  meta.set(kReportsKeyBatchID, std::move(batch.batchID));
  Dictionary preferences = ZRAnalyticsUtils::getDevicePreferencesDictionaryForReportsAPI(true);
  if (!preferences.empty()) meta.set(kReportsKeyDevPreferences, std::move(preferences));
  meta.setObjectNilHandledForKey(std::move(batch.session), kReportsKeyMetaSession);
  meta.setObjectNilHandledForKey(std::move(batch.source), kReportsKeyMetaSource);
  if (ZRCoreUtils::getSDKUserDefault().boolForKey(kUserDefaultsKeyHasDeviceAddFailed)) {
    meta.set(kReportsKeyMetaDAR, "failure");
  }
  body.set(kReportsKeyMeta, std::move(meta));
  if (auto parameters = ZRNetworkConfiguration::getQueryParamsBodyDictForService(kServiceReportAdd)) {
    body.set(kReportsKeyQueryParams, *std::move(parameters));
  }
  return body;
}

bool sendReport(ZRBatchParts&& batch, ZRNetworkRequest::Completion completion) {
  Dictionary body = reportAddBody(std::move(batch));
  auto appID = ZRConfigDataManager::sharedInstance().getZrvAppID();
  if (!appID) {
    logLine("Sync Failure\u203C\uFE0F");
    logLine("Please initialze the SDK Config with the AppID in applicationDidFinishLaunching");
    return false;
  }
  signedRequest(kServiceReportAdd, std::move(body), *std::move(appID))
      ->executeRequestWithCompletionBlock(std::move(completion));
  return true;
}

}  // namespace zorvane
