// A typed test on one event attribute.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Export.h"
#include "ZorvaneCore/ZRCoreTypes.h"
#include "ZorvaneCore/ZRModelObject.h"

namespace zorvane {

// Comments give the keyword of each code. Keywords are matched exactly.
enum ZRFilterDataType : std::int32_t {
  ZRFilterDataTypeString = 0,    // "string"
  ZRFilterDataTypeDatetime = 1,  // "datetime"
  ZRFilterDataTypeBool = 2,      // "bool"
  ZRFilterDataTypeDouble = 3,    // "double"
  ZRFilterDataTypeUnknown = 4,   // any other; never satisfied
};

// How the attribute is compared.
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
  ZRFilterOperatorUnknown = 15,     // any other
};

// What the value of a date filter means.
enum ZRFilterValueType : std::int32_t {
  ZRFilterValueTypeAbsolute = 0,        // any other: ISO 8601 text with milliseconds, in UTC
  ZRFilterValueTypeRelativePast = 1,    // "relative_past": whole days before now
  ZRFilterValueTypeRelativeFuture = 2,  // "relative_future": whole days after now
};

// Immutable and thread-safe. Date checks read the clock and the device's time zone, and write log lines.
//
// "negate" inverts an operator's result. An operator that the data type does not support gives false whatever "negate"
// says; only a string filter inverts that too.
//
// A check throws ValueError if it cannot convert a value: an array to a number, an array element that is no text to
// lower case.
class ZR_PUBLIC ZREventFilter final : public ZRModelObject {
 public:
  // As initWithDictionary.
  explicit ZREventFilter(const Dictionary& dictionary);
  // Keys: "name", "data_type", "operator", "negate", "case_sensitive", "value_type" (dates only), "value", "value1". A
  // null marker counts as missing. Throws ValueError if "negate" or "case_sensitive" cannot be read as a boolean.
  static std::shared_ptr<ZREventFilter> initWithDictionary(const Dictionary& dictionary);

  // The code of a keyword.
  static ZRFilterDataType getDataType(const Value& keyword);
  static ZRFilterOperator getOperator(const Value& keyword);
  static ZRFilterValueType getFilterValueType(const Value& keyword);

  // Whether the filter is satisfied. For nil only "exists" can be.
  bool checkFilterSatisfiedForAttrValue(const Value& value) const;

  // The same for one data type.
  bool boolAttrCheckWithValue(const Value& value) const;
  // "between" includes its lower bound, not its upper one.
  bool doubleAttrCheckWithValue(const Value& value) const;
  // An array satisfies "contains" if one of its elements does, and no other operator of a single text.
  bool stringAttrCheckWithValue(const Value& value) const;
  // The value is in milliseconds since 1970. "on", "before", "after" and "between" compare with the start of the
  // condition's day, "inTheLast" and "inTheNext" with the condition's moment.
  bool dateAttrCheckWithValue(const Value& value) const;

  // The results before inversion. If the filter ignores case, the condition's text and the attribute's text must be in
  // lower case; array elements are lower-cased here.
  bool stringConditionCheckWithArrayConditionValueAndAttrvalue(const Array& condValue, const Value& attrValue) const;
  bool stringConditionCheckWithStringConditionValueAndArrayAttrvalue(std::string_view condValue,
                                                                     const Array& attrValue) const;
  bool stringConditionCheckWithStringConditionValueAndStringAttrvalue(std::string_view condValue,
                                                                      std::string_view attrValue) const;
  // The same for "between" of dates: from the lower day on, before the upper one. Seconds since 1970.
  bool checkDateBetweenOperationWithAttributeValueWithLowerFilterValAndUpperFilterVal(double attrEpoch,
                                                                                      const Value& lowerValue,
                                                                                      const Value& upperValue) const;

  // Parses "yyyy-MM-dd'T'HH:mm:ss.SSS'Z'"; absent for any other text.
  static std::optional<Date> getDateFromISOString(std::string_view text);
  // The day in GMT, "yyyy-MM-dd".
  static std::optional<std::string> getDateStringFromDate(std::optional<Date> date);
  // Adds days of 86,400 seconds.
  static std::optional<Date> dateByAddingDaysToDate(std::int64_t days, std::optional<Date> date);
  // The date's calendar day in the device's time zone, at midnight UTC.
  static std::optional<Date> getDateWithTimeZero(std::optional<Date> date);
  // The date that a condition's value means under the filter's value type.
  std::optional<Date> getDateForFilterWithVal(const Value& value) const;

  // What the dictionary said.
  bool isNegate() const { return isNegate_; }
  bool isCaseSensitive() const { return isCaseSensitive_; }
  ZRFilterOperator filterOperator() const { return filterOperator_; }
  ZRFilterValueType filterValueType() const { return filterValueType_; }
  ZRFilterDataType dataType() const { return dataType_; }
  const Value& condAttrName() const { return condAttrName_; }
  // "value", or an array of "value" and "value1" if both are present; nil without "value".
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
  // The text of condValue for string filters, in lower case if case is ignored.
  std::string condText_;
};

}  // namespace zorvane
