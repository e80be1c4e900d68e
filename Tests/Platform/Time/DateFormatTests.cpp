#include "Platform/Time/DateFormat.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace zorvane::platform {
namespace {

constexpr const char* kSeconds = "yyyy-MM-dd'T'HH:mm:ss'Z'";
constexpr const char* kMilliseconds = "yyyy-MM-dd'T'HH:mm:ss.SSS'Z'";
constexpr const char* kDay = "yyyy-MM-dd";

TEST(DateFormat, WritesDatesByPattern) {
  const struct {
    double date;
    const char* pattern;
    std::int64_t shift;
    const char* text;
  } kCases[] = {
      {1700000000.123, kMilliseconds, 0, "2023-11-14T22:13:20.123Z"},
      {1700000000.1239, kMilliseconds, 0, "2023-11-14T22:13:20.123Z"},
      {1700000000.9995, kSeconds, 0, "2023-11-14T22:13:20Z"},
      {1700000000, kDay, 7200, "2023-11-15"},
      {1700000000, "yyyy-MM-dd'T'HH:mm:ss.SSS'+0530'", 19800, "2023-11-15T03:43:20.000+0530"},
      {98242146.841 - 978307200.0 + 978307200.0, kMilliseconds, 0, "1973-02-11T01:29:06.841Z"},  // as archives keep it
      {-0.25, kMilliseconds, 0, "1969-12-31T23:59:59.750Z"},
      {-0.0001, kMilliseconds, 0, "1969-12-31T23:59:59.999Z"},
      {0, "'o''clock' HH ''ss", 0, "o'clock 00 '00"},
      {-62135596800.0, kMilliseconds, 0, "0001-01-01T00:00:00.000Z"},
      {253402300799.999, kMilliseconds, 0, "9999-12-31T23:59:59.999Z"},
  };
  for (const auto& [date, pattern, shift, text] : kCases) {
    EXPECT_EQ(textOfDate(Date{date}, pattern, shift), text) << date;
  }
}

TEST(DateFormat, HasNoTextOutsideItsCalendar) {
  for (const double date :
       {std::nan(""), std::numeric_limits<double>::infinity(), 1e300, -62135596801.0, 253402300800.0}) {
    EXPECT_EQ(textOfDate(Date{date}, kSeconds, 0), std::nullopt) << date;
  }
  EXPECT_EQ(textOfDate(Date{-62135596800.0}, kSeconds, -1), std::nullopt);
  EXPECT_EQ(textOfDate(Date{0}, kSeconds, std::numeric_limits<std::int64_t>::min()), std::nullopt);
  for (const char* pattern : {"yy", "yyyyy", "M", "E", "yyyyMMdd SS"})
    EXPECT_EQ(textOfDate({}, pattern, 0), std::nullopt);
}

TEST(DateFormat, ReadsWholeTextsOfDaysThatExist) {
  const struct {
    const char* text;
    const char* pattern;
    std::int64_t shift;
    double date;
  } kDates[] = {
      {"2023-11-14T22:13:20.123Z", kMilliseconds, 0, 1700000000.123},
      {"2023-11-14T22:13:20Z", kSeconds, 3600, 1699996400},
      {"1970-01-01", kDay, 0, 0},
      {"2000-02-29", kDay, 0, 951782400},
      {"0001-01-01", kDay, 0, -62135596800.0},
      {"9999-12-31T23:59:59.999Z", kMilliseconds, 0, 253402300799.999},
  };
  for (const auto& [text, pattern, shift, date] : kDates) {
    EXPECT_EQ(dateOfText(text, pattern, shift), Date{date}) << text;
  }
  const struct {
    const char* text;
    const char* pattern;
  } kNoDates[] = {
      // Another form
      {"", kDay},
      {"2023-11-14 ", kDay},
      {"2023-1-14", kDay},
      {"-023-01-01", kDay},
      {"2023/01/01", kDay},
      {"2023-11-14T22:13:20", kSeconds},
      {"2023-11-14T22:13:20.123Z", kSeconds},
      {"2023-11-14T22:13:20.12Z", kMilliseconds},
      // No such day or time
      {"2023-13-01", kDay},
      {"2023-00-01", kDay},
      {"2023-02-29", kDay},
      {"1900-02-29", kDay},
      {"2023-04-31", kDay},
      {"2023-12-32", kDay},
      {"2023-01-00", kDay},
      {"0000-01-01", kDay},
      {"2023-11-14T24:00:00Z", kSeconds},
      {"2023-11-14T22:60:20Z", kSeconds},
      {"2023-11-14T22:13:60Z", kSeconds},
  };
  for (const auto& [text, pattern] : kNoDates) EXPECT_EQ(dateOfText(text, pattern, 0), std::nullopt) << text;
}

}  // namespace
}  // namespace zorvane::platform
