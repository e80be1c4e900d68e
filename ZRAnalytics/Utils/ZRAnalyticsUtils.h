// Identifiers, signatures, device preferences, the advertising identifier.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreTypes.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {

// Static operations only; any thread. An object among a signature's components may throw; nothing else does.
class ZRAnalyticsUtils {
 public:
  // "{milliseconds since 1970}-{random UUID in upper case}". The milliseconds are 0 when the host's clock fails.
  static std::string createBatchIdentifier();

  // The signature of a request body: upper-case SHA-1 of "meta.bid", "meta.request_time" and "query_params.unique_id".
  // Absent if one of the three is missing or the payload is null.
  static std::optional<std::string> getRequestIDForPayload(const Dictionary* payload);
  // Upper-case SHA-1 of the components' concatenated "%@" texts.
  static std::string getSignatureWithComponents(const Array& components);
  // SHA-1 of the UTF-8 text as 40 lower-case hexadecimal digits.
  static std::string sha1(std::string_view text);

  // {"e_t_p", "push_p", "in_app_p"}, true if enabled; with onlyDisabled just those that are false.
  static Dictionary getDevicePreferencesDictionaryForReportsAPI(bool onlyDisabled);

  // The host's advertising identifier, asked for only when it may be used. Absent, with a log line, without a service
  // or without the user's permission, and after an error.
  static std::optional<std::string> advertiserID();
  // Stored in the SDK defaults under "ZRV_ADVERTISING_ID". Saving an absent one does nothing; a missing one reads as
  // nil.
  static void saveAdvertisingID(const std::optional<std::string>& identifier);
  static Value getSavedAdvertisingID();

  // Whether the application delegate proxy was installed. Never reset.
  static bool isAppDelegateProxyConfigured();
  static void appDelegateProxyConfigured();

  // Whether the account is active and the SDK enabled.
  static bool areGatesOpen() {
    return ZRConfigDataManager::sharedInstance().isAccountActive() && ZRCoreUtils::isSDKEnabled();
  }
  // Whether the user or the application wants no data kept: opted out of data tracking, or the SDK disabled. False when
  // only the service switched data tracking off.
  static bool isOptedOut() {
    return !ZRCoreUtils::isSDKEnabled() || ZRConfigDataManager::sharedInstance().isDataTrackingOptedOut();
  }
  // Whether the account is active, data tracking enabled and the SDK enabled.
  static bool shouldTrackUserAttribute();
};

}  // namespace zorvane
