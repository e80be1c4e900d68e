// Dates to text and back by pattern, in the US POSIX locale.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Text/Text.h"
#include "Platform/Time/Date.h"

namespace zorvane::platform {

// Pattern fields are yyyy MM dd HH mm ss SSS. Text in single quotes and characters other than letters are literal.

// Since 1970, floored. Empty for NaN and for dates far outside the years of the calendar.
std::optional<std::int64_t> millisecondsOfDate(Date date);

// The text of the date in a zone with that offset; milliseconds are floored. Empty for NaN, for dates outside the years
// 1 to 9999 and for a malformed pattern.
std::optional<std::string> textOfDate(Date date, std::string_view pattern, std::int64_t secondsFromGMT);

// The same by the pattern "yyyy-MM-dd'T'HH:mm:ss.SSS", with the zone's text, up to eight characters, behind it.
// Empty where textOfDate is.
Text isoTextOfDate(Date date, std::int64_t secondsFromGMT, std::string_view zone);

// The date, if the whole text matches the pattern and names a valid day and time (second 60 is not). Otherwise empty.
std::optional<Date> dateOfText(std::string_view text, std::string_view pattern, std::int64_t secondsFromGMT);

}  // namespace zorvane::platform
