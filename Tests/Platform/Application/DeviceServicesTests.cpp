#include "Platform/Application/DeviceServices.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cmath>
#include <thread>
#include <vector>

namespace zorvane::platform {
namespace {

using Text = std::optional<std::string>;

TEST(LocaleIdentifier, FallsIntoLanguageAndCountry) {
  const struct {
    const char* identifier;
    Text language;
    Text country;
  } kCases[] = {
      {"de_AT", "de", "AT"},
      {"zh_Hans_CN", "zh", "CN"},
      {"sr-Latn", "sr", {}},
      {"es-419", "es", "419"},
      {"EN_us", "en", "US"},
      {"ca_ES_VALENCIA", "ca", "ES"},
      {"en-u-ca-japanese", "en", {}},
      {"en_US@x=DE", "en", "US"},
      {"yue", "yue", {}},
      {"C", {}, {}},
      {"", {}, {}},
      {"_US", {}, "US"},
  };
  for (const auto& [identifier, language, country] : kCases) {
    EXPECT_EQ(languageCodeOfLocale(identifier), language) << identifier;
    EXPECT_EQ(countryCodeOfLocale(identifier), country) << identifier;
  }
}

TEST(ProcessLocale, IsTheFirstThatTheEnvironmentNames) {
  const struct {
    const char* all;
    const char* messages;
    const char* lang;
    Text identifier;
  } kCases[] = {
      {"de_AT.UTF-8@euro", "fr_FR", "en_US", "de_AT"},
      {"", "fr_FR.UTF-8", "en_US", "fr_FR"},
      {"", "", "sr_RS@latin", "sr_RS"},
      {"C.UTF-8", "", "en_US", {}},
      {"", "POSIX", "en_US", {}},
      {"", "", "", {}},
  };
  for (const auto& [all, messages, lang, identifier] : kCases) {
    ::setenv("LC_ALL", all, 1);
    ::setenv("LC_MESSAGES", messages, 1);
    ::setenv("LANG", lang, 1);
    const auto locale = makeProcessLocale();
    EXPECT_EQ(locale->localeIdentifier(), identifier);
    EXPECT_EQ(locale->languageCode().has_value(), identifier.has_value());
    EXPECT_EQ(locale->countryCode().has_value(), identifier.has_value());
  }
}

TEST(ProcessTimeZone, KnowsDaylightSavingAndFarYearsOnEveryThread) {
  ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  const auto zone = makeProcessTimeZone();
  const struct {
    double date;
    std::int64_t shift;
  } kCases[] = {
      {1700000000, 3600}, {1690000000.5, 7200}, {1698541199, 7200},        {1698541199.75, 7200}, {1698541200, 3600},
      {-1e9, 3600},       {32503680000, 3600},  {64060588800 + 2e7, 7200}, {1e300, 3600},         {std::nan(""), 0},
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (const auto& [date, shift] : kCases) EXPECT_EQ(zone->secondsFromGMT(Date{date}), shift) << date;
    });
  }
  for (std::thread& thread : threads) thread.join();
  ::setenv("TZ", "<+0545>-5:45", 1);
  EXPECT_EQ(makeProcessTimeZone()->secondsFromGMT(Date{1700000000}), 20700);
}

}  // namespace
}  // namespace zorvane::platform
