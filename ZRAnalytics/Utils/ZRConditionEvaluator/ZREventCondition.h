// The test behind event triggers: whether a tracked event matches a condition of the service.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Platform/Export.h"
#include "ZRAnalytics/Utils/ZRConditionEvaluator/ZREventFilter.h"
#include "ZorvaneCore/ZRCoreTypes.h"
#include "ZorvaneCore/ZRModelObject.h"

namespace zorvane {

// Immutable and thread-safe.
class ZR_PUBLIC ZREventCondition final : public ZRModelObject {
 public:
  // As initWithDictionary.
  explicit ZREventCondition(const Dictionary& dictionary);
  // Keys: "eventName"; "filter_operator": "or" if one filter suffices, else all must be satisfied; "filters": an array
  // of ZREventFilter dictionaries. A malformed filter is logged as an error and never satisfied; so is "filters" if it
  // is neither an array nor an empty dictionary.
  static std::shared_ptr<ZREventCondition> initWithDictionary(const Dictionary& dictionary);

  // 1 for "or", else 0.
  static std::int32_t getFilterOperator(const Value& keyword);

  // The attributes are an event record as trigger delegates receive it. False unless the event's name is equal; without
  // filters the name alone decides. Filters are evaluated in order until the result is known. Date filters read only
  // the record's date-time section (the first entry with their name), all others only its plain section. Throws
  // nothing: an exception is logged and the result is false.
  bool checkIfAttributeConditionSatisfiedForEventAndAttributes(const Value& event, const Dictionary& attributes) const;

  // 0: all filters must be satisfied; 1: one suffices.
  std::int32_t filterOperator() const { return filterOperator_; }
  // What the dictionary said.
  const Value& eventName() const { return eventName_; }
  const std::vector<std::shared_ptr<const ZREventFilter>>& filters() const { return filters_; }

 private:
  void addFilter(const Value& dictionary);
  bool areFiltersSatisfied(const Dictionary& attributes) const;

  std::int32_t filterOperator_;
  Value eventName_;
  std::vector<std::shared_ptr<const ZREventFilter>> filters_;
};

}  // namespace zorvane
