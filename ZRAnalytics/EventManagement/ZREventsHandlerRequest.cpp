// The report-add request: one saved batch as the body that the service takes.

#include "Platform/Files/DefaultsStore.h"
#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/EventManagement/BatchRequest.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreUtils.h"
#include "ZorvaneCore/ZRDateUtils.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"
#include "ZorvaneCore/ZRNetworkConfiguration.h"

namespace zorvane {
namespace {

// Where companion extensions of the application read who the user is.
void mirrorIdentifiers(const Dictionary& identifiers) {
  const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
  const auto group = store.getAppGroupID();
  const auto appID = store.getZrvAppID();
  if (!group || !appID) return;
  platform::DefaultsStore& shared = platform::groupDefaults(*group);
  const Value kept = shared.objectForKey(*appID);
  Dictionary mirrored = kept.isDictionary() ? *kept.asDictionary() : Dictionary();
  mirrored.set(kSharedDefaultsKeyIdentifiers, identifiers);
  shared.setObjectForKey(std::move(mirrored), *appID);
  (void)shared.synchronize();
}

}  // namespace

Value requestTimeNow() {
  const auto text = ZRDateUtils::getStringForDateWithFormatAndForGMTTimeZone(platform::hostServices().clock->now(),
                                                                             kZRDateFormatISO8601MilliSec, true);
  return text ? Value(*text) : Value();
}

Dictionary ZREventsHandler::reportAddPayloadForBatchInfo(const Dictionary& batchInfo) {
  const Value events = batchInfo.objectForKey(kBatchKeyEvents);
  Dictionary body;
  body.setObjectNilHandledForKey(events, kReportsKeyEventsList);
  body.set(kReportsKeyEventsCount, events.isArray() ? events.asArray()->size() : 0);
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

ZREventsHandler::BatchRequest ZREventsHandler::requestForBatch(const Dictionary& batchInfo,
                                                               std::optional<std::size_t> eventCount) {
  BatchRequest request;
  request.body = reportAddPayloadForBatchInfo(batchInfo);
  if (eventCount) request.body.set(kReportsKeyEventsCount, *eventCount);
  if (auto requestID = ZRAnalyticsUtils::getRequestIDForPayload(&request.body)) {
    request.headers.set(kReportsAPIHeaderKeyRequestID, *std::move(requestID));
  }
  return request;
}

void ZREventsHandler::logSyncFailure() {
  logLine("Sync Failure\u203C\uFE0F");
  logLine("Please initialze the SDK Config with the AppID in applicationDidFinishLaunching");
}

}  // namespace zorvane
