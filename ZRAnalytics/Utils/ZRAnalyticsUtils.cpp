#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"

#include <atomic>

#include "Platform/HostServices.h"
#include "Platform/Text/Hex.h"
#include "Platform/Text/NumberText.h"
#include "Platform/Text/SHA1.h"
#include "Platform/Text/UUID.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Utils/ZRDefaults.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreUtils.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZRAnalyticsUtils";
constexpr int kTrackingAuthorized = 3;

std::atomic<bool> proxyConfigured{false};

std::string hexDigest(std::string_view text, std::string_view digits) {
  std::string result;
  platform::appendHex(result, platform::sha1Digest(text), digits);
  return result;
}

}  // namespace

std::string ZRAnalyticsUtils::createBatchIdentifier() {
  std::int64_t milliseconds = 0;
  guarded({kFile, "createBatchIdentifier"}, "exception is %@", [&] {
    const double seconds = platform::hostServices().clock->now().secondsSince1970;
    // integerValue clamps: a clock may be set beyond the range of an integer.
    milliseconds = Value(seconds * 1000.0).integerValue();
  });
  return platform::textOfInteger(milliseconds) + "-" + platform::randomUUID();
}

std::optional<std::string> ZRAnalyticsUtils::getRequestIDForPayload(const Dictionary* payload) {
  if (!payload) return std::nullopt;
  Array components;
  components.reserve(3);
  for (const std::string_view path : {"meta.bid", "meta.request_time", "query_params.unique_id"}) {
    components.push_back(validObjectForKeyPath(*payload, path));
    if (components.back().isNil()) return std::nullopt;
  }
  return getSignatureWithComponents(components);
}

std::string ZRAnalyticsUtils::getSignatureWithComponents(const Array& components) {
  std::string text;
  for (const Value& component : components) text += component.description();
  return hexDigest(text, platform::kUpperHexDigits);
}

std::string ZRAnalyticsUtils::sha1(std::string_view text) {
  return hexDigest(text, platform::kLowerHexDigits);
}

Dictionary ZRAnalyticsUtils::getDevicePreferencesDictionaryForReportsAPI(bool onlyDisabled) {
  const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
  const std::pair<std::string_view, bool> preferences[] = {
      {kReportsKeyDevPrefData, store.isDataTrackingEnabled()},
      {kReportsKeyDevPrefPush, store.isPushNotificationEnabled()},
      {kReportsKeyDevPrefInApp, store.isInAppEnabled()},
  };
  Dictionary dictionary;
  for (const auto& [key, enabled] : preferences) {
    if (!onlyDisabled || !enabled) dictionary.set(key, enabled);
  }
  return dictionary;
}

std::optional<std::string> ZRAnalyticsUtils::advertiserID() {
  std::optional<std::string> identifier;
  guarded({kFile, "advertiserID"}, "Exception : %@", [&] {
    const auto& service = platform::hostServices().advertising;
    if (!service || !service->isAvailable()) {
      logLine("ADSupport Framework unavailable");
      return;
    }
    const std::optional<int> status = service->trackingAuthorizationStatus();
    if (status && *status != kTrackingAuthorized) {
      logLine("ATTrackingManager trackingAuthorizationStatus is Not Authorized");
    } else if (!status && !service->isAdvertisingTrackingEnabled()) {
      logLine("Limited ad tracking. Can't track advertising identifier");
    } else {
      identifier = service->advertisingIdentifier();
    }
  });
  return identifier;
}

void ZRAnalyticsUtils::saveAdvertisingID(const std::optional<std::string>& identifier) {
  if (identifier) keepInDefaults(*identifier, kUserDefaultsKeyIDFA);
}

Value ZRAnalyticsUtils::getSavedAdvertisingID() {
  return ZRCoreUtils::getSDKUserDefault().objectForKey(kUserDefaultsKeyIDFA);
}

bool ZRAnalyticsUtils::isAppDelegateProxyConfigured() {
  return proxyConfigured.load();
}
void ZRAnalyticsUtils::appDelegateProxyConfigured() {
  proxyConfigured.store(true);
}

bool ZRAnalyticsUtils::shouldTrackUserAttribute() {
  const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
  return store.isAccountActive() && store.isDataTrackingEnabled() && ZRCoreUtils::isSDKEnabled();
}

}  // namespace zorvane
