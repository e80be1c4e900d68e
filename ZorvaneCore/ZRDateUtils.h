// Dates as the SDK writes and reads them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Formats and parses by one pattern, in the US POSIX locale, in GMT or in the device's time zone.
class ZRDateFormatter {
 public:
  ZRDateFormatter(std::string_view format, bool gmt) : format_(format), gmt_(gmt) {}
  // Empty for a date that has no text.
  std::optional<std::string> stringFromDate(Date date) const;
  // Empty unless the whole text matches.
  std::optional<Date> dateFromString(std::string_view text) const;

 private:
  std::string format_;
  bool gmt_;
};

// Class operations only; any thread.
class ZRDateUtils {
 public:
  static ZRDateFormatter dateFormatterForUsPosixLocaleWithFormatForGMTTimeZone(std::string_view format, bool gmt);
  static std::optional<Date> getDateForStringWithFormatAndForGMTTimeZone(std::string_view text, std::string_view format,
                                                                         bool gmt);
  static std::optional<std::string> getStringForDateWithFormatAndForGMTTimeZone(std::optional<Date> date,
                                                                                std::string_view format, bool gmt);
  // Strictly earlier, strictly later; false when either date is absent.
  static bool isDate1EarlierToDate2(std::optional<Date> date1, std::optional<Date> date2);
  static bool isDate1LaterToDate2(std::optional<Date> date1, std::optional<Date> date2);
  // Now, in the millisecond pattern: in GMT; and in the device's zone with its offset ("+0530") in place of Z.
  static std::string getGMTtime();
  static std::string getLocalTime();
};

}  // namespace zorvane
