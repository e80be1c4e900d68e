// What a host may know about the device: advertising identifier, locale, time zone.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Export.h"
#include "Platform/Time/Date.h"

namespace zorvane::platform {

// Called from any thread.
class AdvertisingService {
 public:
  virtual ~AdvertisingService() = default;
  // Whether this device has advertising identifiers. If not, nothing else is asked. Default: true.
  virtual bool isAvailable() const { return true; }
  // The user's answer in the platform's numbers: 3 is authorised. Absent on a platform that does not ask the user;
  // there isAdvertisingTrackingEnabled decides.
  virtual std::optional<int> trackingAuthorizationStatus() const = 0;
  // False if the user has limited ad tracking. Default: true.
  virtual bool isAdvertisingTrackingEnabled() const { return true; }
  // Asked for only with the user's permission.
  virtual std::optional<std::string> advertisingIdentifier() const = 0;
};

// The user's current locale; each result is empty when unknown. Called from any thread.
class ZR_PUBLIC LocaleService {
 public:
  virtual ~LocaleService() = default;
  // "en_US", "zh_Hans_CN".
  virtual std::optional<std::string> localeIdentifier() const = 0;
  // "US", "CN".
  virtual std::optional<std::string> countryCode() const = 0;
  // "en", "zh".
  virtual std::optional<std::string> languageCode() const = 0;
  // In the locale's own language. Defaults: unknown.
  virtual std::optional<std::string> displayNameForCountryCode(const std::string& /*code*/) const { return {}; }
  virtual std::optional<std::string> displayNameForLanguageCode(const std::string& /*code*/) const { return {}; }
  virtual std::optional<std::string> displayNameForIdentifier(const std::string& /*identifier*/) const { return {}; }
};

// The device's time zone. Called from any thread.
class TimeZone {
 public:
  virtual ~TimeZone() = default;
  // The offset from UTC at that moment, in seconds, including daylight saving.
  virtual std::int64_t secondsFromGMT(Date date) const = 0;
};

// The parts of a locale identifier ("de_AT", "zh-Hans-CN", "en_US@currency=USD"), the language in lower case and the
// country in upper case; empty where the identifier has none.
ZR_PUBLIC std::optional<std::string> languageCodeOfLocale(std::string_view identifier);
ZR_PUBLIC std::optional<std::string> countryCodeOfLocale(std::string_view identifier);

// The identifier in a locale's name, without encoding and modifier, its parts joined by "_" ("de_AT.UTF-8@euro" gives
// "de_AT", "sr-Latn" gives "sr_Latn"). Empty for "C", "POSIX" and "".
ZR_PUBLIC std::optional<std::string> identifierOfLocaleName(std::string_view name);

// The locale of the process's environment at the time of the call: the first that is set of LC_ALL, LC_MESSAGES and
// LANG. For "C" and "POSIX" everything is unknown. No display names.
ZR_PUBLIC std::shared_ptr<LocaleService> makeProcessLocale();
// The process's time zone (TZ, else the machine's) at the time of the call. Before the year 1 and after the year 9999,
// the offset is that of the first or last second of these years.
ZR_PUBLIC std::shared_ptr<TimeZone> makeProcessTimeZone();

}  // namespace zorvane::platform
