// Identifiers, signatures, device preferences and the advertising identifier.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Class operations only; any thread.
class ZRAnalyticsUtils {
 public:
  // "{milliseconds since 1970}-{random UUID}".
  static std::string createBatchIdentifier();

  // The signature of a request body: upper-case SHA-1 over "meta.bid", "meta.request_time" and
  // "query_params.unique_id". Absent when one of the three is, or the payload is null.
  static std::optional<std::string> getRequestIDForPayload(const Dictionary* payload);
  // Upper-case SHA-1 over the components' "%@" texts, one after the other.
  static std::string getSignatureWithComponents(const Array& components);
  // 40 lower-case hexadecimal digits over the UTF-8 text.
  static std::string sha1(std::string_view text);

  // {"e_t_p", "push_p", "in_app_p"}: true means enabled. For the reports API only what is switched off.
  static Dictionary getDevicePreferencesDictionaryForReportsAPI(bool onlyDisabled);

  // The platform's advertising identifier; absent, with a log line, when there is no service or no permission.
  static std::optional<std::string> advertiserID();
  // Kept in the SDK defaults store under "ZRV_ADVERTISING_ID"; absent does nothing.
  static void saveAdvertisingID(const std::optional<std::string>& identifier);
  static Value getSavedAdvertisingID();

  // Whether the application delegate proxy is in place; once set, never cleared.
  static bool isAppDelegateProxyConfigured();
  static void appDelegateProxyConfigured();

  // Account active, data tracking enabled, SDK enabled.
  static bool shouldTrackUserAttribute();
};

}  // namespace zorvane
