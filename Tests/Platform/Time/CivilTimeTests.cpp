#include "Platform/Time/CivilTime.h"

#include <gtest/gtest.h>

namespace zorvane::platform {
namespace {

TEST(CivilTime, CountsEveryDayOfFourHundredYearsOnce) {
  constexpr int kLengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  std::int64_t day = daysFromCivil(1799, 12, 31);
  ASSERT_EQ(day, -62092);
  for (std::int64_t year = 1800; year < 2201; ++year) {
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    for (int month = 1; month <= 12; ++month) {
      const int length = kLengths[month - 1] + (month == 2 && leap ? 1 : 0);
      for (int dayOfMonth = 1; dayOfMonth <= length; ++dayOfMonth) {
        ASSERT_EQ(daysFromCivil(year, month, dayOfMonth), ++day);
        const CivilTime time = civilTimeFromSeconds(day * 86400 + 86399);
        ASSERT_TRUE(time.year == year && time.month == month && time.day == dayOfMonth && time.hour == 23 &&
                    time.minute == 59 && time.second == 59)
            << day;
      }
    }
  }
}

TEST(CivilTime, ReachesFarYearsAndBack) {
  for (const std::int64_t seconds :
       {-62167219201LL, -62135596800LL, -1LL, 0LL, 253402300800LL, -30000000000000LL, 30000000000000LL}) {
    EXPECT_EQ(secondsFromCivilTime(civilTimeFromSeconds(seconds)), seconds);
  }
  EXPECT_EQ(civilTimeFromSeconds(-62167219201LL).year, -1);
}

}  // namespace
}  // namespace zorvane::platform
