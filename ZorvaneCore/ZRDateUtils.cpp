#include "ZorvaneCore/ZRDateUtils.h"

#include <cstdint>
#include <optional>
#include <string>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/HostServices.h"
#include "Platform/Text/NumberText.h"
#include "Platform/Time/DateFormat.h"

namespace zorvane {
namespace {

std::int64_t deviceOffset(Date date) {
  return platform::hostServices().timeZone->secondsFromGMT(date);
}

std::string zoneText(std::int64_t offset) {
  const std::int64_t minutes = (offset < 0 ? -offset : offset) / 60;
  const std::string digits = platform::textOfInteger(minutes / 60 * 100 + minutes % 60);
  std::string zone(1, offset < 0 ? '-' : '+');
  return zone.append(digits.size() < 4 ? 4 - digits.size() : 0, '0') += digits;
}

// The text of a time, made once for all that ask within a millisecond: the events of a burst share it. Thread-safe.
class LastTime {
 public:
  Text text(Date date, std::int64_t offset, bool isGMT) {
    const auto milliseconds = platform::millisecondsOfDate(date);
    platform::MutexLock lock(mutex_);
    if (milliseconds != milliseconds_ || offset != offset_) {
      text_ = platform::isoTextOfDate(date, offset, isGMT ? "Z" : zoneText(offset));
      milliseconds_ = milliseconds;
      offset_ = offset;
    }
    return text_;
  }

 private:
  platform::Mutex mutex_;
  std::optional<std::int64_t> milliseconds_ ZR_GUARDED_BY(mutex_);
  std::int64_t offset_ ZR_GUARDED_BY(mutex_) = 0;
  Text text_ ZR_GUARDED_BY(mutex_);
};

}  // namespace

std::optional<std::string> ZRDateFormatter::stringFromDate(Date date) const {
  return platform::textOfDate(date, format_, gmt_ ? 0 : deviceOffset(date));
}

std::optional<Date> ZRDateFormatter::dateFromString(std::string_view text) const {
  const auto date = platform::dateOfText(text, format_, 0);
  if (gmt_ || !date) return date;
  // Approximates the UTC time with the offset at the same time in GMT, then takes the offset in force there.
  const std::int64_t guess = deviceOffset(*date);
  const std::int64_t offset = deviceOffset(Date{date->secondsSince1970 - static_cast<double>(guess)});
  return Date{date->secondsSince1970 - static_cast<double>(offset)};
}

ZRDateFormatter ZRDateUtils::dateFormatterForUsPosixLocaleWithFormatForGMTTimeZone(std::string_view format, bool gmt) {
  return {format, gmt};
}

std::optional<Date> ZRDateUtils::getDateForStringWithFormatAndForGMTTimeZone(std::string_view text,
                                                                             std::string_view format, bool gmt) {
  return ZRDateFormatter(format, gmt).dateFromString(text);
}

std::optional<std::string> ZRDateUtils::getStringForDateWithFormatAndForGMTTimeZone(std::optional<Date> date,
                                                                                    std::string_view format, bool gmt) {
  return date ? ZRDateFormatter(format, gmt).stringFromDate(*date) : std::nullopt;
}

bool ZRDateUtils::isDate1EarlierToDate2(std::optional<Date> date1, std::optional<Date> date2) {
  return date1 && date2 && *date1 < *date2;
}

bool ZRDateUtils::isDate1LaterToDate2(std::optional<Date> date1, std::optional<Date> date2) {
  return date1 && date2 && *date1 > *date2;
}

Text ZRDateUtils::getGMTtime() {
  static LastTime& last = *new LastTime;
  return last.text(platform::hostServices().clock->now(), 0, true);
}

Text ZRDateUtils::getLocalTime() {
  return getLocalTime(platform::hostServices().clock->now());
}

Text ZRDateUtils::getLocalTime(Date date) {
  static LastTime& last = *new LastTime;
  return last.text(date, deviceOffset(date), false);
}

}  // namespace zorvane
