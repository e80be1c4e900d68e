#include "Platform/Time/CivilTime.h"

namespace zorvane::platform {

std::int64_t daysFromCivil(std::int64_t year, int month, int day) noexcept {
  // Counts eras of 400 years from 0000-03-01, so that a leap day is the last day of its year.
  year -= month <= 2 ? 1 : 0;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

CivilTime civilTimeFromSeconds(std::int64_t seconds) noexcept {
  std::int64_t days = seconds / 86400;
  std::int64_t rest = seconds % 86400;
  if (rest < 0) {
    rest += 86400;
    --days;
  }
  const std::int64_t shifted = days + 719468;
  const std::int64_t era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
  const std::int64_t dayOfEra = shifted - era * 146097;
  const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
  CivilTime time;
  time.day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
  time.month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
  time.year = yearOfEra + era * 400 + (time.month <= 2 ? 1 : 0);
  time.hour = static_cast<int>(rest / 3600);
  time.minute = static_cast<int>(rest / 60 % 60);
  time.second = static_cast<int>(rest % 60);
  return time;
}

std::int64_t secondsFromCivilTime(const CivilTime& time) noexcept {
  return daysFromCivil(time.year, time.month, time.day) * 86400 + time.hour * 3600 + time.minute * 60 + time.second;
}

}  // namespace zorvane::platform
