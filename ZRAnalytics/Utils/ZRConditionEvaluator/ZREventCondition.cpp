#include "ZRAnalytics/Utils/ZRConditionEvaluator/ZREventCondition.h"

#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZREventCondition";
constexpr std::int32_t kMatchAny = 1;

const Dictionary& dictionaryIn(const Value& value) {
  if (const Dictionary* dictionary = value.asDictionary()) return *dictionary;
  throw ValueError("no dictionary: " + value.description());
}

const Value* plainValue(const Dictionary& record, std::string_view name) {
  const Value* section = record.findNonNull(kReportsKeyEventAttrs);
  return section ? dictionaryIn(*section).findNonNull(name) : nullptr;
}

const Value* dateValue(const Dictionary& record, std::string_view name) {
  const Value* custom = record.findNonNull(kReportsKeyEventCustomAttrs);
  const Dictionary* attributes = custom ? custom->asDictionary() : nullptr;
  const Value* section = attributes ? attributes->findNonNull(kReportsKeyCustomTimestamp) : nullptr;
  if (!section) return nullptr;
  const Array* entries = section->asArray();
  if (!entries) throw ValueError("no array: " + section->description());
  for (const Value& entry : *entries) {
    const Dictionary& pair = dictionaryIn(entry);
    if (pair.contains(name)) return pair.findNonNull(name);
  }
  return nullptr;
}

}  // namespace

ZREventCondition::ZREventCondition(const Dictionary& dictionary)
    : ZRModelObject(dictionary),
      filterOperator_(getFilterOperator(validObjectForKey(dictionary, "filter_operator"))),
      eventName_(validObjectForKey(dictionary, "eventName")) {
  const Value* filters = dictionary.findNonNull("filters");
  if (!filters) return;
  if (const Array* dictionaries = filters->asArray()) {
    filters_.reserve(dictionaries->size());
    for (const Value& element : *dictionaries) addFilter(element);
  } else if (!filters->isDictionary() || !filters->asDictionary()->empty()) {
    addFilter(Array{*filters});
  }
}

std::shared_ptr<ZREventCondition> ZREventCondition::initWithDictionary(const Dictionary& dictionary) {
  return std::make_shared<ZREventCondition>(dictionary);
}

std::int32_t ZREventCondition::getFilterOperator(const Value& keyword) {
  return keyword == "or" ? kMatchAny : 0;
}

void ZREventCondition::addFilter(const Value& dictionary) {
  std::shared_ptr<const ZREventFilter> filter;
  guarded({kFile, "addFilter"}, "Exception in reading a filter %@",
          [&] { filter = ZREventFilter::initWithDictionary(dictionaryIn(dictionary)); });
  // A malformed filter is replaced by one that is never satisfied: a broken condition must not match more events.
  filters_.push_back(filter ? std::move(filter) : ZREventFilter::initWithDictionary({}));
}

bool ZREventCondition::checkIfAttributeConditionSatisfiedForEventAndAttributes(const Value& event,
                                                                               const Dictionary& attributes) const {
  if (!event.isString() || event != eventName_) return false;
  bool satisfied = false;
  guarded({kFile, "checkIfAttributeConditionSatisfiedForEventAndAttributes", 98},
          "Exception in checking  Conditions %@", [&] { satisfied = areFiltersSatisfied(attributes); });
  return satisfied;
}

bool ZREventCondition::areFiltersSatisfied(const Dictionary& attributes) const {
  const Value missing;
  for (const auto& filter : filters_) {
    const Text* name = filter->condAttrName().asString();
    const bool isDate = filter->dataType() == ZRFilterDataTypeDatetime;
    const Value* value = !name ? nullptr : isDate ? dateValue(attributes, *name) : plainValue(attributes, *name);
    const bool satisfied = filter->checkFilterSatisfiedForAttrValue(value ? *value : missing);
    if (satisfied == (filterOperator_ == kMatchAny)) return satisfied;
  }
  return filters_.empty() || filterOperator_ != kMatchAny;
}

}  // namespace zorvane
