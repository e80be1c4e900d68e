// One typed test on one event attribute.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "ZorvaneCore/ZRCoreTypes.h"
#include "ZorvaneCore/ZRModelObject.h"

namespace zorvane {

// The keyword of each code stands beside it; keywords are matched exactly.
enum ZRFilterDataType : std::int32_t {
  ZRFilterDataTypeString = 0,    // "string"
  ZRFilterDataTypeDatetime = 1,  // "datetime"
  ZRFilterDataTypeBool = 2,      // "bool"
  ZRFilterDataTypeDouble = 3,    // "double"
  ZRFilterDataTypeUnknown = 4,   // anything else; never satisfied
};

enum ZRFilterOperator : std::int32_t {
  ZRFilterOperatorIs = 0,           // "is"
  ZRFilterOperatorBetween = 1,      // "between"
  ZRFilterOperatorLessThan = 2,     // "lessThan"
  ZRFilterOperatorGreaterThan = 3,  // "greaterThan"
  ZRFilterOperatorIn = 4,           // "in"
  ZRFilterOperatorContains = 5,     // "contains"
  ZRFilterOperatorStartsWith = 6,   // "startsWith"
  ZRFilterOperatorEndsWith = 7,     // "endsWith"
  ZRFilterOperatorOn = 8,           // "on"
  ZRFilterOperatorExists = 9,       // "exists"
  ZRFilterOperatorBefore = 10,      // "before"
  ZRFilterOperatorAfter = 11,       // "after"
  ZRFilterOperatorToday = 12,       // "today"
  ZRFilterOperatorInTheLast = 13,   // "inTheLast"
  ZRFilterOperatorInTheNext = 14,   // "inTheNext"
  ZRFilterOperatorUnknown = 15,     // anything else
};

enum ZRFilterValueType : std::int32_t {
  ZRFilterValueTypeAbsolute = 0,        // anything else: ISO text with milliseconds, in UTC
  ZRFilterValueTypeRelativePast = 1,    // "relative_past": whole days before now
  ZRFilterValueTypeRelativeFuture = 2,  // "relative_future": whole days after now
};

// Immutable; any thread. Evaluation reads the clock and, for dates, the device's time zone; date checks write log
// lines.
//
// An operator's outcome is inverted by "negate". An operator that the data type does not know answers false whatever
// "negate" says; only a string filter inverts there too.
//
// A value without the reading that a check needs (an array as a number, a number in a comparison that ignores case)
// throws ValueError.
class ZREventFilter final : public ZRModelObject {
 public:
  explicit ZREventFilter(const Dictionary& dictionary);
  // Keys: "name", "data_type", "operator", "negate", "case_sensitive", "value_type" (dates only), "value", "value1". A
  // null marker is a missing key. Throws ValueError when "negate" or "case_sensitive" has no boolean reading.
  static std::shared_ptr<ZREventFilter> initWithDictionary(const Dictionary& dictionary);

  static ZRFilterDataType getDataType(const Value& keyword);
  static ZRFilterOperator getOperator(const Value& keyword);
  static ZRFilterValueType getFilterValueType(const Value& keyword);

  // The filter's verdict. Without a value only "exists" can hold.
  bool checkFilterSatisfiedForAttrValue(const Value& value) const;

  // The verdict by data type.
  bool boolAttrCheckWithValue(const Value& value) const;
  // "between" includes its lower bound, not its upper one.
  bool doubleAttrCheckWithValue(const Value& value) const;
  bool stringAttrCheckWithValue(const Value& value) const;
  // The value is in milliseconds since 1970. "on", "before", "after" and "between" compare with the start of the
  // condition's day, "inTheLast" and "inTheNext" with the condition's moment.
  bool dateAttrCheckWithValue(const Value& value) const;

  // The outcome before it is inverted. The condition's text comes in lower case when the filter ignores case, and so
  // does the attribute's single text; elements are put into lower case here.
  bool stringConditionCheckWithArrayConditionValueAndAttrvalue(const Array& condValue, const Value& attrValue) const;
  bool stringConditionCheckWithStringConditionValueAndArrayAttrvalue(std::string_view condValue,
                                                                     const Array& attrValue) const;
  bool stringConditionCheckWithStringConditionValueAndStringAttrvalue(std::string_view condValue,
                                                                      std::string_view attrValue) const;
  bool checkDateBetweenOperationWithAttributeValueWithLowerFilterValAndUpperFilterVal(double attrEpoch,
                                                                                      const Value& lowerValue,
                                                                                      const Value& upperValue) const;

  // "yyyy-MM-dd'T'HH:mm:ss.SSS'Z'" and nothing else.
  static std::optional<Date> getDateFromISOString(std::string_view text);
  // The day in GMT, "yyyy-MM-dd".
  static std::optional<std::string> getDateStringFromDate(std::optional<Date> date);
  // Days of 86,400 seconds.
  static std::optional<Date> dateByAddingDaysToDate(std::int64_t days, std::optional<Date> date);
  // Midnight UTC of the day that the date falls on in the device's time zone.
  static std::optional<Date> getDateWithTimeZero(std::optional<Date> date);
  // The moment that a condition's value means, by the filter's value type.
  std::optional<Date> getDateForFilterWithVal(const Value& value) const;

  bool isNegate() const { return isNegate_; }
  bool isCaseSensitive() const { return isCaseSensitive_; }
  ZRFilterOperator filterOperator() const { return filterOperator_; }
  ZRFilterValueType filterValueType() const { return filterValueType_; }
  ZRFilterDataType dataType() const { return dataType_; }
  const Value& condAttrName() const { return condAttrName_; }
  // "value"; with "value1" an array of the two; nil without "value".
  const Value& condValue() const { return condValue_; }

 private:
  bool negated(bool outcome) const { return outcome != isNegate_; }
  bool isAmong(const Value& element, const Array& condValue) const;

  bool isNegate_ = false;
  bool isCaseSensitive_ = false;
  ZRFilterOperator filterOperator_;
  ZRFilterValueType filterValueType_ = ZRFilterValueTypeAbsolute;
  ZRFilterDataType dataType_;
  Value condAttrName_;
  Value condValue_;
  // What a string filter compares with: the text of condValue, in lower case when case is ignored.
  std::string condText_;
};

}  // namespace zorvane
