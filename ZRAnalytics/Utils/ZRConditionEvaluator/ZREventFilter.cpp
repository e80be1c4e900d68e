#include "ZRAnalytics/Utils/ZRConditionEvaluator/ZREventFilter.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Platform/HostServices.h"
#include "Platform/Text/CaseMapping.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRDateUtils.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"

namespace zorvane {
namespace {

constexpr double kSecondsOfDay = 86400;

// Indexed by code.
constexpr std::string_view kDataTypes[] = {"string", "datetime", "bool", "double"};
constexpr std::string_view kOperators[] = {"is",       "between",    "lessThan", "greaterThan", "in",
                                           "contains", "startsWith", "endsWith", "on",          "exists",
                                           "before",   "after",      "today",    "inTheLast",   "inTheNext"};

static_assert(std::size(kDataTypes) == ZRFilterDataTypeUnknown);
static_assert(kDataTypes[ZRFilterDataTypeString] == "string" && kDataTypes[ZRFilterDataTypeDatetime] == "datetime" &&
              kDataTypes[ZRFilterDataTypeBool] == "bool" && kDataTypes[ZRFilterDataTypeDouble] == "double");
static_assert(std::size(kOperators) == ZRFilterOperatorUnknown);
static_assert(kOperators[ZRFilterOperatorIs] == "is" && kOperators[ZRFilterOperatorBetween] == "between" &&
              kOperators[ZRFilterOperatorLessThan] == "lessThan" &&
              kOperators[ZRFilterOperatorGreaterThan] == "greaterThan" && kOperators[ZRFilterOperatorIn] == "in" &&
              kOperators[ZRFilterOperatorContains] == "contains" &&
              kOperators[ZRFilterOperatorStartsWith] == "startsWith" &&
              kOperators[ZRFilterOperatorEndsWith] == "endsWith" && kOperators[ZRFilterOperatorOn] == "on" &&
              kOperators[ZRFilterOperatorExists] == "exists" && kOperators[ZRFilterOperatorBefore] == "before" &&
              kOperators[ZRFilterOperatorAfter] == "after" && kOperators[ZRFilterOperatorToday] == "today" &&
              kOperators[ZRFilterOperatorInTheLast] == "inTheLast" &&
              kOperators[ZRFilterOperatorInTheNext] == "inTheNext");

// The keyword's index; the number of keywords (Unknown) if it is none of them.
template <std::size_t Count>
std::int32_t codeOf(const Value& keyword, const std::string_view (&keywords)[Count]) {
  const Text* text = keyword.asString();
  const auto found = text ? std::find(std::begin(keywords), std::end(keywords), text->view()) : std::end(keywords);
  return static_cast<std::int32_t>(found - std::begin(keywords));
}

std::string lowercasedText(const Value& element) {
  const Text* text = element.asString();
  if (!text) throw ValueError("no lower case of " + element.description());
  return platform::lowercased(*text);
}

Date now() {
  return platform::hostServices().clock->now();
}

double epochOf(std::optional<Date> date) {
  return date ? date->secondsSince1970 : 0;
}

}  // namespace

ZRFilterDataType ZREventFilter::getDataType(const Value& keyword) {
  return static_cast<ZRFilterDataType>(codeOf(keyword, kDataTypes));
}

ZRFilterOperator ZREventFilter::getOperator(const Value& keyword) {
  return static_cast<ZRFilterOperator>(codeOf(keyword, kOperators));
}

ZRFilterValueType ZREventFilter::getFilterValueType(const Value& keyword) {
  if (keyword == "relative_past") return ZRFilterValueTypeRelativePast;
  if (keyword == "relative_future") return ZRFilterValueTypeRelativeFuture;
  return ZRFilterValueTypeAbsolute;
}

ZREventFilter::ZREventFilter(const Dictionary& dictionary)
    : ZRModelObject(dictionary),
      isNegate_(validObjectForKey(dictionary, "negate").boolValue()),
      isCaseSensitive_(validObjectForKey(dictionary, "case_sensitive").boolValue()),
      filterOperator_(getOperator(validObjectForKey(dictionary, "operator"))),
      dataType_(getDataType(validObjectForKey(dictionary, "data_type"))),
      condAttrName_(validObjectForKey(dictionary, "name")),
      condValue_(validObjectForKey(dictionary, "value")) {
  if (dataType_ == ZRFilterDataTypeDatetime) {
    filterValueType_ = getFilterValueType(validObjectForKey(dictionary, "value_type"));
  }
  Value second = validObjectForKey(dictionary, "value1");
  if (!condValue_.isNil() && !second.isNil()) condValue_ = Array{std::move(condValue_), std::move(second)};
  if (!condValue_.isNil() && !condValue_.isArray()) {
    condText_ = condValue_.description();
    if (!isCaseSensitive_) condText_ = platform::lowercased(condText_);
  }
}

std::shared_ptr<ZREventFilter> ZREventFilter::initWithDictionary(const Dictionary& dictionary) {
  return std::make_shared<ZREventFilter>(dictionary);
}

bool ZREventFilter::checkFilterSatisfiedForAttrValue(const Value& value) const {
  if (value.isNil() && filterOperator_ != ZRFilterOperatorExists) return false;
  switch (dataType_) {
    case ZRFilterDataTypeString:
      return stringAttrCheckWithValue(value);
    case ZRFilterDataTypeDouble:
      return doubleAttrCheckWithValue(value);
    case ZRFilterDataTypeBool:
      return boolAttrCheckWithValue(value);
    case ZRFilterDataTypeDatetime:
      return dateAttrCheckWithValue(value);
    default:
      return false;
  }
}

bool ZREventFilter::boolAttrCheckWithValue(const Value& value) const {
  switch (filterOperator_) {
    case ZRFilterOperatorExists:
      return negated(!value.isNil());
    case ZRFilterOperatorIs:
      return negated(value.boolValue() == condValue_.boolValue());
    default:
      return false;
  }
}

bool ZREventFilter::doubleAttrCheckWithValue(const Value& value) const {
  const Array* condArray = condValue_.asArray();
  switch (filterOperator_) {
    case ZRFilterOperatorIs:
      return negated(value.doubleValue() == condValue_.doubleValue());
    case ZRFilterOperatorBetween: {
      if (!condArray || condArray->size() != 2) return negated(false);
      const double number = value.doubleValue();
      const double lower = condArray->front().doubleValue();
      const double upper = condArray->back().doubleValue();
      return negated(lower <= number && number < upper);
    }
    case ZRFilterOperatorLessThan:
      return negated(value.doubleValue() < condValue_.doubleValue());
    case ZRFilterOperatorGreaterThan:
      return negated(value.doubleValue() > condValue_.doubleValue());
    case ZRFilterOperatorIn: {
      if (!condArray) return negated(false);
      const auto isIn = [&](double number) {
        return std::any_of(condArray->begin(), condArray->end(),
                           [&](const Value& element) { return element.doubleValue() == number; });
      };
      const Array* elements = value.asArray();
      if (!elements) return negated(isIn(value.doubleValue()));
      // With an empty condition array no element is converted: a conversion may throw.
      return negated(!condArray->empty() && std::any_of(elements->begin(), elements->end(), [&](const Value& element) {
        return isIn(element.doubleValue());
      }));
    }
    case ZRFilterOperatorExists:
      return negated(!value.isNil());
    default:
      return false;
  }
}

bool ZREventFilter::stringAttrCheckWithValue(const Value& value) const {
  if (filterOperator_ == ZRFilterOperatorExists) return negated(!value.isNil());
  if (value.isNil() || condValue_.isNil()) return false;
  if (const Array* condArray = condValue_.asArray()) {
    return negated(filterOperator_ == ZRFilterOperatorIn &&
                   stringConditionCheckWithArrayConditionValueAndAttrvalue(*condArray, value));
  }
  if (const Array* elements = value.asArray()) {
    return negated(stringConditionCheckWithStringConditionValueAndArrayAttrvalue(condText_, *elements));
  }
  std::string owned;
  std::string_view text;
  if (const Text* own = value.asString()) {
    text = *own;
  } else {
    text = owned = value.description();
  }
  if (!isCaseSensitive_) text = owned = platform::lowercased(text);
  return negated(stringConditionCheckWithStringConditionValueAndStringAttrvalue(condText_, text));
}

bool ZREventFilter::isAmong(const Value& element, const Array& condValue) const {
  if (isCaseSensitive_) return std::find(condValue.begin(), condValue.end(), element) != condValue.end();
  if (condValue.empty()) return false;
  const std::string text = lowercasedText(element);
  return std::any_of(condValue.begin(), condValue.end(),
                     [&](const Value& other) { return lowercasedText(other) == text; });
}

bool ZREventFilter::stringConditionCheckWithArrayConditionValueAndAttrvalue(const Array& condValue,
                                                                            const Value& attrValue) const {
  if (attrValue.isString()) return isAmong(attrValue, condValue);
  const Array* elements = attrValue.asArray();
  if (!elements) return isAmong(attrValue.description(), condValue);
  return std::any_of(elements->begin(), elements->end(),
                     [&](const Value& element) { return isAmong(element, condValue); });
}

bool ZREventFilter::stringConditionCheckWithStringConditionValueAndArrayAttrvalue(std::string_view condValue,
                                                                                  const Array& attrValue) const {
  if (filterOperator_ != ZRFilterOperatorContains) return false;
  return std::any_of(attrValue.begin(), attrValue.end(), [&](const Value& element) {
    if (!isCaseSensitive_) return lowercasedText(element).find(condValue) != std::string::npos;
    return element.isString() && element.asString()->view().find(condValue) != std::string::npos;
  });
}

bool ZREventFilter::stringConditionCheckWithStringConditionValueAndStringAttrvalue(std::string_view condValue,
                                                                                   std::string_view attrValue) const {
  switch (filterOperator_) {
    case ZRFilterOperatorIs:
      return attrValue == condValue;
    case ZRFilterOperatorContains:
      return attrValue.find(condValue) != std::string_view::npos;
    case ZRFilterOperatorStartsWith:
      return attrValue.starts_with(condValue);
    case ZRFilterOperatorEndsWith:
      return attrValue.ends_with(condValue);
    default:
      return false;
  }
}

bool ZREventFilter::dateAttrCheckWithValue(const Value& value) const {
  const Date attrDate{value.doubleValue() / 1000.0};
  const double attrEpoch = attrDate.secondsSince1970;
  const auto attrDay = getDateStringFromDate(attrDate);
  logLine("Date Condition Check : Attr Date(%@), EpochValue(%f), StringVal(%@)",
          {Value(attrDate), attrEpoch, valueOf(attrDay)});
  const Array* bounds = condValue_.asArray();
  if (bounds && filterOperator_ == ZRFilterOperatorBetween) {
    return negated(bounds->size() == 2 &&
                   checkDateBetweenOperationWithAttributeValueWithLowerFilterValAndUpperFilterVal(
                       attrEpoch, bounds->front(), bounds->back()));
  }

  const auto condDate = getDateForFilterWithVal(condValue_);
  const auto dayStart = getDateWithTimeZero(condDate);
  const Date today = now();
  const double condEpoch = epochOf(condDate);
  const double startEpoch = epochOf(dayStart);
  const double nowEpoch = today.secondsSince1970;
  logLine(
      "Date Condition Check : Cond Date(%@) ||  EpochValue(%f) || EpochStartOfDay(%f) || StringVal(%@) || "
      "EpochToday(%f) ",
      {valueOf(condDate), condEpoch, startEpoch, valueOf(getDateStringFromDate(condDate)), nowEpoch});
  // A date that cannot be formatted matches no day.
  const auto isAttrDay = [&](std::optional<Date> date) { return attrDay && attrDay == getDateStringFromDate(date); };
  switch (filterOperator_) {
    case ZRFilterOperatorOn:
      return negated(isAttrDay(dayStart));
    case ZRFilterOperatorExists:
      return negated(!value.isNil());
    case ZRFilterOperatorBefore:
      return negated(startEpoch > attrEpoch);
    case ZRFilterOperatorAfter:
      return negated(attrEpoch >= epochOf(dateByAddingDaysToDate(1, dayStart)));
    case ZRFilterOperatorToday:
      return negated(isAttrDay(today));
    case ZRFilterOperatorInTheLast:
      return negated(condEpoch < attrEpoch && attrEpoch < nowEpoch);
    case ZRFilterOperatorInTheNext:
      return negated(nowEpoch < attrEpoch && attrEpoch < condEpoch);
    default:
      return false;
  }
}

bool ZREventFilter::checkDateBetweenOperationWithAttributeValueWithLowerFilterValAndUpperFilterVal(
    double attrEpoch, const Value& lowerValue, const Value& upperValue) const {
  // "3 to 7 days ago" begins 7 days ago.
  const bool swapped = filterValueType_ == ZRFilterValueTypeRelativePast;
  const auto lower = getDateWithTimeZero(getDateForFilterWithVal(swapped ? upperValue : lowerValue));
  const auto upper = getDateWithTimeZero(getDateForFilterWithVal(swapped ? lowerValue : upperValue));
  logLine("Date BETWEEN Check : lowerdate(%@) and epoch(%f) || upperdate(%@) and epoch(%f)",
          {valueOf(lower), epochOf(lower), valueOf(upper), epochOf(upper)});
  return epochOf(lower) <= attrEpoch && attrEpoch < epochOf(upper);
}

std::optional<Date> ZREventFilter::getDateFromISOString(std::string_view text) {
  return ZRDateUtils::dateFormatterForUsPosixLocaleWithFormatForGMTTimeZone(kZRDateFormatISO8601MilliSec, true)
      .dateFromString(text);
}

std::optional<std::string> ZREventFilter::getDateStringFromDate(std::optional<Date> date) {
  if (!date) return std::nullopt;
  return ZRDateUtils::dateFormatterForUsPosixLocaleWithFormatForGMTTimeZone(kZRDateFormatShort, true)
      .stringFromDate(*date);
}

std::optional<Date> ZREventFilter::dateByAddingDaysToDate(std::int64_t days, std::optional<Date> date) {
  if (!date) return std::nullopt;
  return Date{date->secondsSince1970 + static_cast<double>(days) * kSecondsOfDay};
}

std::optional<Date> ZREventFilter::getDateWithTimeZero(std::optional<Date> date) {
  if (!date) return std::nullopt;
  const auto offset = static_cast<double>(platform::hostServices().timeZone->secondsFromGMT(*date));
  return Date{std::floor((date->secondsSince1970 + offset) / kSecondsOfDay) * kSecondsOfDay};
}

std::optional<Date> ZREventFilter::getDateForFilterWithVal(const Value& value) const {
  switch (filterValueType_) {
    case ZRFilterValueTypeAbsolute:
      return getDateFromISOString(value.description());
    case ZRFilterValueTypeRelativeFuture:
      return dateByAddingDaysToDate(value.integerValue(), now());
    case ZRFilterValueTypeRelativePast: {
      // The most negative integer cannot be negated.
      const std::int64_t days = std::max(value.integerValue(), -std::numeric_limits<std::int64_t>::max());
      return dateByAddingDaysToDate(-days, now());
    }
    default:
      return std::nullopt;
  }
}

}  // namespace zorvane
