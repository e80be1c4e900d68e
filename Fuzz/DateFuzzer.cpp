// Dates as text: what is read is written the same, what is written is read as the same millisecond.
#include <stdlib.h>

#include <iterator>

#include "Check.h"
#include "Generate.h"
#include "Platform/Formats/XMLText.h"
#include "Platform/Time/CivilTime.h"
#include "Platform/Time/DateFormat.h"
#include "ZorvaneCore/ZRDateUtils.h"

using namespace zorvane;

namespace {

constexpr std::string_view kPatterns[] = {kZRDateFormatISO8601MilliSec, kZRDateFormatISO8601, kZRDateFormatShort};
// What a pattern cannot tell apart, in seconds.
constexpr double kUnits[] = {0.001, 1, 86400};

void checkText(std::string_view text, std::size_t pattern, std::int64_t offset) {
  const auto date = platform::dateOfText(text, kPatterns[pattern], offset);
  if (!date) return;
  const auto written = platform::textOfDate(*date, kPatterns[pattern], offset);
  fuzz::check(written && *written == text, "what is read is written the same");
  fuzz::check(date->secondsSince1970 > -62135596800.0 - 1e6 && date->secondsSince1970 < 253402300800.0 + 1e6,
              "a date is of the years 1 to 9999");
}

void checkDate(Date date, std::size_t pattern, std::int64_t offset) {
  const auto text = platform::textOfDate(date, kPatterns[pattern], offset);
  if (!text) return;
  const auto read = platform::dateOfText(*text, kPatterns[pattern], offset);
  fuzz::check(static_cast<bool>(read), "what is written can be read");
  const double lost = date.secondsSince1970 - read->secondsSince1970;
  const double rounding = 1e-5 + std::abs(date.secondsSince1970) * 0x1p-50;
  fuzz::check(lost > -rounding && lost < kUnits[pattern] + rounding, "less than the pattern's unit is lost");
  fuzz::check(platform::textOfDate(*read, kPatterns[pattern], offset) == text, "reading and writing come to rest");
}

// In a zone whose clocks change; an hour that they skip has another hour's date.
void checkLocal(std::string_view text, std::size_t pattern) {
  const ZRDateFormatter local(kPatterns[pattern], false);
  const auto date = local.dateFromString(text);
  fuzz::check(date.has_value() == ZRDateFormatter(kPatterns[pattern], true).dateFromString(text).has_value(),
              "the zone decides not what is a date");
  const auto written = date ? local.stringFromDate(*date) : std::nullopt;
  if (!written) return;  // the first and the last hours of all years
  fuzz::check(local.dateFromString(*written) == date, "local times come to rest");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  return setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t pattern = input.byte() % std::size(kPatterns);
  const auto offset = static_cast<std::int64_t>(input.number(3)) - 0x7FFFFF;
  const Date date{input.byte() % 2 == 0 ? std::bit_cast<double>(input.number(8))
                                        : static_cast<double>(input.number(6)) / 1000 - 62135596800.0};
  const std::string_view text = input.rest();
  checkText(text, pattern, offset);
  checkText(text, pattern, 0);
  checkDate(date, pattern, offset);
  checkDate(date, pattern, 0);
  checkLocal(text, pattern);

  const auto seconds = platform::dateOfText(text, kZRDateFormatISO8601, 0);
  const auto xml = platform::dateOfXMLText(text);
  // XML has a year 0, too.
  fuzz::check(!seconds || (xml && *xml == platform::Value(*seconds)), "XML takes every ISO date");
  fuzz::check(!xml || seconds || text.starts_with("0000"), "and no others");

  (void)Value(date).description();
  // The text as a pattern: what it writes it reads, unless it asks for a day without its month or the like.
  const auto odd = platform::textOfDate(date, text, offset);
  const auto again = odd ? platform::dateOfText(*odd, text, offset) : std::nullopt;
  fuzz::check(!again || platform::textOfDate(*again, text, offset) == odd, "any pattern writes what it reads");
  return 0;
}
