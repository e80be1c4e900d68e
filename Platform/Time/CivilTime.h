// Calendar arithmetic of the proleptic Gregorian calendar, in whole seconds, without a time zone database.
#pragma once

#include <cstdint>
#include <string>

#include "Platform/Values/Value.h"

namespace zorvane::platform {

struct CivilTime {
  std::int64_t year = 1970;
  int month = 1;   // 1 to 12
  int day = 1;     // 1 to 31
  int hour = 0;    // 0 to 23
  int minute = 0;  // 0 to 59
  int second = 0;  // 0 to 59
};

std::int64_t daysFromCivil(std::int64_t year, int month, int day) noexcept;
// The fields of a number of seconds since 1970-01-01 00:00 in the same zone.
CivilTime civilTimeFromSeconds(std::int64_t seconds) noexcept;
std::int64_t secondsFromCivilTime(const CivilTime& time) noexcept;

// "2026-11-21 10:00:00 +0000"; a date that no calendar holds (not a number, beyond a million years) as its seconds.
std::string describeDate(Date date);

}  // namespace zorvane::platform
