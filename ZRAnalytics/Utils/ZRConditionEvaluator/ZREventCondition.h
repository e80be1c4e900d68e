// Whether one tracked event matches a condition of the service: the test behind event triggers.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "ZRAnalytics/Utils/ZRConditionEvaluator/ZREventFilter.h"
#include "ZorvaneCore/ZRCoreTypes.h"
#include "ZorvaneCore/ZRModelObject.h"

namespace zorvane {

// Immutable; any thread, several at once too.
class ZREventCondition final : public ZRModelObject {
 public:
  explicit ZREventCondition(const Dictionary& dictionary);
  // Keys: "eventName"; "filter_operator": "or", or else all filters must hold; "filters": an array of dictionaries as
  // ZREventFilter takes them. A filter that cannot be read is reported through the logger and never holds; so is
  // "filters" when it is no array.
  static std::shared_ptr<ZREventCondition> initWithDictionary(const Dictionary& dictionary);

  // 1 for "or", else 0.
  static std::int32_t getFilterOperator(const Value& keyword);

  // The attributes are an event record as trigger delegates receive it. The name must be equal; without filters it
  // decides alone. Filters are asked in order up to the first that decides. Date filters look only into the record's
  // date-time section (the first entry of their name), all others only into its plain one. Throws nothing: an exception
  // is reported through the logger and answered with false.
  bool checkIfAttributeConditionSatisfiedForEventAndAttributes(const Value& event, const Dictionary& attributes) const;

  // 0: all filters must hold; 1: one suffices.
  std::int32_t filterOperator() const { return filterOperator_; }
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
