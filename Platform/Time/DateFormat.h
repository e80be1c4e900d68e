// Dates as text by pattern, in the US POSIX locale.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Time/Date.h"

namespace zorvane::platform {

// Patterns: yyyy MM dd HH mm ss SSS, text in single quotes, any other character but a letter as itself.

// The text of the date shifted by so many seconds from GMT; milliseconds are floored. Empty for a date that is no
// number or lies outside the years 1 to 9999.
std::optional<std::string> textOfDate(Date date, std::string_view pattern, std::int64_t secondsFromGMT);

// The date, when the whole text matches the pattern and names a day and time that exist (a second 60 does not).
std::optional<Date> dateOfText(std::string_view text, std::string_view pattern, std::int64_t secondsFromGMT);

}  // namespace zorvane::platform
