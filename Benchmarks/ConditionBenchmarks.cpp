// The cost of testing an event against a trigger's condition.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "Counters.h"
#include "ZRAnalytics/Utils/ZRConditionEvaluator/ZREventCondition.h"

namespace zorvane::bench {
namespace {

Dictionary eventOfTwentyAttributes() {
  Dictionary attributes{{"product", "Trail running shoe with a long name"},
                        {"sku", "TR-2041-43"},
                        {"price", 119.95},
                        {"quantity", 2},
                        {"member", true},
                        {"tags", Array{"outdoor", "running", "waterproof and warm"}}};
  for (int i = 6; i < 20; ++i) attributes.set("attribute " + std::to_string(i), i);
  Array dates;
  for (const char* name : {"delivery", "order"}) dates.emplace_back(Dictionary{{name, 1795255200000.0}});
  return {{"EVENT_ACTION", "Product viewed"},
          {"EVENT_ATTRS", std::move(attributes)},
          {"EVENT_G_TIME", "2026-11-21T10:00:00.000Z"},
          {"EVENT_L_TIME", "2026-11-21T10:00:00.000+0000"},
          {"EVENT_ATTRS_CUST", Dictionary{{"timestamp", std::move(dates)}}}};
}

// Five satisfied filters.
Array fiveFilters(bool caseSensitive) {
  Array filters{
      Dictionary{{"name", "product"}, {"data_type", "string"}, {"operator", "contains"}, {"value", "shoe with a long"}},
      Dictionary{{"name", "price"}, {"data_type", "double"}, {"operator", "between"}, {"value", 100}, {"value1", 120}},
      Dictionary{{"name", "member"}, {"data_type", "bool"}, {"operator", "is"}, {"value", true}},
      Dictionary{{"name", "tags"}, {"data_type", "string"}, {"operator", "in"}, {"value", Array{"warm", "running"}}},
      Dictionary{{"name", "attribute 19"}, {"data_type", "double"}, {"operator", "greaterThan"}, {"value", 18}},
  };
  for (Value& filter : filters) filter.mutableDictionary().set("case_sensitive", caseSensitive);
  return filters;
}

Array fiveDateFilters() {
  Array filters;
  for (int days = 1; days <= 5; ++days) {
    filters.emplace_back(Dictionary{{"name", "order"},
                                    {"data_type", "datetime"},
                                    {"operator", "before"},
                                    {"value_type", "relative_future"},
                                    {"value", days * 100000}});
  }
  return filters;
}

void EvaluateCondition(benchmark::State& state, Array filters) {
  const auto condition =
      ZREventCondition::initWithDictionary({{"eventName", "Product viewed"}, {"filters", std::move(filters)}});
  const Dictionary record = eventOfTwentyAttributes();
  const Value name = "Product viewed";
  if (!condition->checkIfAttributeConditionSatisfiedForEventAndAttributes(name, record)) {
    state.SkipWithError("the condition does not hold");
  }
  const std::int64_t before = allocationsOfThread();
  for (auto _ : state) {
    benchmark::DoNotOptimize(condition->checkIfAttributeConditionSatisfiedForEventAndAttributes(name, record));
  }
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(allocationsOfThread() - before), benchmark::Counter::kAvgIterations);
}

BENCHMARK_CAPTURE(EvaluateCondition, FiveFilters, fiveFilters(true));
BENCHMARK_CAPTURE(EvaluateCondition, FiveFiltersIgnoringCase, fiveFilters(false));
BENCHMARK_CAPTURE(EvaluateCondition, FiveDateFilters, fiveDateFilters());

}  // namespace
}  // namespace zorvane::bench
