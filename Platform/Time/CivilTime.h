// Calendar arithmetic of the proleptic Gregorian calendar, in whole seconds, without a time zone database.
#pragma once

#include <cstdint>

namespace zorvane::platform {

struct CivilTime {
  std::int64_t year = 1970;
  int month = 1;   // 1 to 12
  int day = 1;     // 1 to 31
  int hour = 0;    // 0 to 23
  int minute = 0;  // 0 to 59
  int second = 0;  // 0 to 59
};

// Days since 1970-01-01.
std::int64_t daysFromCivil(std::int64_t year, int month, int day) noexcept;
// The date and time so many seconds after 1970-01-01 00:00.
CivilTime civilTimeFromSeconds(std::int64_t seconds) noexcept;
std::int64_t secondsFromCivilTime(const CivilTime& time) noexcept;

}  // namespace zorvane::platform
