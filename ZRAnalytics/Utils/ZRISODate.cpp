#include "ZRAnalytics/Utils/ZRISODate.h"

#include "ZorvaneCore/ZRDateUtils.h"

namespace zorvane {

std::optional<Date> dateOfISOText(const Value& text) {
  const Text* const iso = text.asString();
  if (!iso) throw ValueError("the date is no text: " + text.description());
  const auto date = ZRDateUtils::getDateForStringWithFormatAndForGMTTimeZone(*iso, kZRDateFormatISO8601, true);
  if (date) return date;
  return ZRDateUtils::getDateForStringWithFormatAndForGMTTimeZone(*iso, kZRDateFormatISO8601MilliSec, true);
}

}  // namespace zorvane
