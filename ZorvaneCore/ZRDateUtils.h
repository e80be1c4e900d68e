// Formats and parses the SDK's dates.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Formats and parses dates by one pattern, in the US POSIX locale, in GMT or in the device's time zone. Immutable.
class ZRDateFormatter {
 public:
  ZRDateFormatter(std::string_view format, bool gmt) : format_(format), gmt_(gmt) {}
  // Absent if the date has no text (a year outside 1 to 9999).
  std::optional<std::string> stringFromDate(Date date) const;
  // Absent unless the whole text matches.
  std::optional<Date> dateFromString(std::string_view text) const;

 private:
  std::string format_;
  bool gmt_;
};

// Static operations only; any thread.
class ZRDateUtils {
 public:
  static ZRDateFormatter dateFormatterForUsPosixLocaleWithFormatForGMTTimeZone(std::string_view format, bool gmt);
  // Absent unless the whole text matches.
  static std::optional<Date> getDateForStringWithFormatAndForGMTTimeZone(std::string_view text, std::string_view format,
                                                                         bool gmt);
  // Absent if the date is, or has no text.
  static std::optional<std::string> getStringForDateWithFormatAndForGMTTimeZone(std::optional<Date> date,
                                                                                std::string_view format, bool gmt);
  // Strictly earlier, strictly later. False if either date is absent.
  static bool isDate1EarlierToDate2(std::optional<Date> date1, std::optional<Date> date2);
  static bool isDate1LaterToDate2(std::optional<Date> date1, std::optional<Date> date2);
  // The current time in the millisecond pattern: in GMT, and in the device's zone with its offset ("+0530") in place of
  // Z. Empty if it has no text.
  static Text getGMTtime();
  static Text getLocalTime();
  // The same for that date.
  static Text getLocalTime(Date date);
};

}  // namespace zorvane
