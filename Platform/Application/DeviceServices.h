// What a host may tell about the device: advertising identifier, locale, time zone.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Time/Date.h"

namespace zorvane::platform {

// Called from any thread.
class AdvertisingService {
 public:
  virtual ~AdvertisingService() = default;
  // As the platform counts: 3 is authorised.
  virtual int trackingAuthorizationStatus() const = 0;
  virtual std::optional<std::string> advertisingIdentifier() const = 0;
};

// The user's current locale; each answer is empty where it is not known. Called from any thread.
class LocaleService {
 public:
  virtual ~LocaleService() = default;
  // "en_US", "zh_Hans_CN".
  virtual std::optional<std::string> localeIdentifier() const = 0;
  virtual std::optional<std::string> countryCode() const = 0;
  virtual std::optional<std::string> languageCode() const = 0;
  // In the locale's own language. Defaults: not known.
  virtual std::optional<std::string> displayNameForCountryCode(const std::string& code) const;
  virtual std::optional<std::string> displayNameForLanguageCode(const std::string& code) const;
  virtual std::optional<std::string> displayNameForIdentifier(const std::string& identifier) const;
};

// The device's time zone. Called from any thread.
class TimeZone {
 public:
  virtual ~TimeZone() = default;
  // What is added to UTC at that moment, in seconds, daylight saving included.
  virtual std::int64_t secondsFromGMT(Date date) const = 0;
};

// The parts of a locale identifier ("de_AT", "zh-Hans-CN", "en_US@currency=USD"), the language in lower case and the
// country in upper case; empty where the identifier has none.
std::optional<std::string> languageCodeOfLocale(std::string_view identifier);
std::optional<std::string> countryCodeOfLocale(std::string_view identifier);

// The identifier in a locale's name ("de_AT.UTF-8@euro": "de_AT", "sr-Latn": "sr_Latn"): without encoding and modifier,
// its parts joined by "_". Empty for "C", "POSIX" and "".
std::optional<std::string> identifierOfLocaleName(std::string_view name);

// The locale that the process's environment names when this is called: the first that is set of LC_ALL, LC_MESSAGES and
// LANG. Nothing is known of "C" and "POSIX". No display names.
std::shared_ptr<LocaleService> makeProcessLocale();
// The process's time zone (TZ, else the machine's) as it is when this is called. Before the year 1 and after the year
// 9999 the zone stays as it is at that end.
std::shared_ptr<TimeZone> makeProcessTimeZone();

}  // namespace zorvane::platform
