// Dates as text: a text that can be read is written the same, and a date that is written is read as the same
// millisecond.
#include <stdlib.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <iterator>

#include "Check.h"
#include "Platform/Formats/XMLText.h"
#include "Platform/Time/CivilTime.h"
#include "Platform/Time/DateFormat.h"
#include "ZorvaneCore/ZRDateUtils.h"

using namespace zorvane;

namespace {

constexpr std::string_view kPatterns[] = {kZRDateFormatISO8601MilliSec, kZRDateFormatISO8601, kZRDateFormatShort};
// Seconds: the smallest unit of each pattern.
constexpr double kUnits[] = {0.001, 1, 86400};

// Removes so many big-endian bytes at the front; zeros follow the end.
std::uint64_t takeNumber(std::string_view& text, std::size_t bytes) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < bytes; ++i)
    number = number << 8 | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0U);
  text.remove_prefix(std::min(bytes, text.size()));
  return number;
}

void checkText(std::string_view text, std::size_t pattern, std::int64_t offset) {
  const auto date = platform::dateOfText(text, kPatterns[pattern], offset);
  if (!date) return;
  const auto written = platform::textOfDate(*date, kPatterns[pattern], offset);
  fuzz::check(written && *written == text, "a text that can be read is written the same");
  fuzz::check(date->secondsSince1970 > -62135596800.0 - 1e6 && date->secondsSince1970 < 253402300800.0 + 1e6,
              "a date is in the years 1 to 9999");
}

void checkDate(Date date, std::size_t pattern, std::int64_t offset) {
  const auto text = platform::textOfDate(date, kPatterns[pattern], offset);
  if (!text) return;
  const auto read = platform::dateOfText(*text, kPatterns[pattern], offset);
  fuzz::check(static_cast<bool>(read), "a text that was written can be read");
  const double lost = date.secondsSince1970 - read->secondsSince1970;
  const double rounding = 1e-5 + std::abs(date.secondsSince1970) * 0x1p-50;
  fuzz::check(lost > -rounding && lost < kUnits[pattern] + rounding, "less than the pattern's unit is lost");
  fuzz::check(platform::textOfDate(*read, kPatterns[pattern], offset) == text,
              "reading and writing again changes nothing");
}

// In a zone with daylight saving time. An hour that the clocks skip is read as another hour.
void checkLocal(std::string_view text, std::size_t pattern) {
  const ZRDateFormatter local(kPatterns[pattern], false);
  const auto date = local.dateFromString(text);
  fuzz::check(date.has_value() == ZRDateFormatter(kPatterns[pattern], true).dateFromString(text).has_value(),
              "the zone does not decide what is a date");
  const auto written = date ? local.stringFromDate(*date) : std::nullopt;
  if (!written) return;  // the first and last hours of the calendar
  fuzz::check(local.dateFromString(*written) == date, "reading a written local time gives the same date");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  return setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  std::string_view text = fuzz::textOf(data, size);
  const auto pattern = static_cast<std::size_t>(takeNumber(text, 1) % std::size(kPatterns));
  const auto offset = static_cast<std::int64_t>(takeNumber(text, 3)) - 0x7FFFFF;
  const Date date{takeNumber(text, 1) % 2 == 0 ? std::bit_cast<double>(takeNumber(text, 8))
                                               : static_cast<double>(takeNumber(text, 6)) / 1000 - 62135596800.0};
  checkText(text, pattern, offset);
  checkText(text, pattern, 0);
  checkDate(date, pattern, offset);
  checkDate(date, pattern, 0);
  checkLocal(text, pattern);

  const auto seconds = platform::dateOfText(text, kZRDateFormatISO8601, 0);
  const auto xml = platform::dateOfXMLText(text);
  // XML also has a year 0.
  fuzz::check(!seconds || (xml && *xml == platform::Value(*seconds)), "XML takes every ISO date");
  fuzz::check(!xml || seconds || text.starts_with("0000"), "XML takes no other date");

  (void)Value(date).description();
  // The text as a pattern. A text that it writes may be unreadable: a day without a month, for example.
  const auto odd = platform::textOfDate(date, text, offset);
  const auto again = odd ? platform::dateOfText(*odd, text, offset) : std::nullopt;
  fuzz::check(!again || platform::textOfDate(*again, text, offset) == odd,
              "any pattern writes the same text as it reads");
  return 0;
}
