// What a host may tell about the device: advertising identifier, locale, time zone.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Platform/Values/Value.h"

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
  // In the locale's own language.
  virtual std::optional<std::string> displayNameForCountryCode(const std::string& code) const = 0;
  virtual std::optional<std::string> displayNameForLanguageCode(const std::string& code) const = 0;
  virtual std::optional<std::string> displayNameForIdentifier(const std::string& identifier) const = 0;
};

// The device's time zone. Called from any thread.
class TimeZone {
 public:
  virtual ~TimeZone() = default;
  // What is added to UTC at that moment, in seconds, daylight saving included.
  virtual std::int64_t secondsFromGMT(Date date) const = 0;
};

}  // namespace zorvane::platform
