#include <stdlib.h>
#include <time.h>

#include "Check.h"
#include "Platform/Formats/JSON.h"
#include "Platform/HostServices.h"
#include "Stepping/ManualClock.h"
#include "ZRAnalytics/Utils/ZRConditionEvaluator/ZREventCondition.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"
#include "ZorvaneCore/ZRLogger.h"

using namespace zorvane;

namespace {

// Counts the exceptions that evaluations report.
class Reports final : public ZRLogSink {
 public:
  void logMessage(std::int64_t, const std::string&) override {}
  void logError(const std::string&, std::int64_t line, const std::string&, const std::string&,
                const std::vector<std::string>&) override {
    if (line == 98) ++count;
  }
  int count = 0;
};

std::shared_ptr<Reports> startOnce() {
  ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  platform::HostServices host;
  host.clock = std::make_shared<platform::ManualClock>(Date{1795255200});
  fuzz::check(platform::configureHost(std::move(host)), "the host can be configured");
  auto reports = std::make_shared<Reports>();
  ZRLogger::sharedInstance().setSink(reports);
  return reports;
}

enum class Verdict { False, True, Raised };

Verdict verdictOf(Reports& reports, const Dictionary& condition, const Value& event, const Dictionary& record) {
  const auto made = ZREventCondition::initWithDictionary(condition);
  const auto evaluate = [&] {
    const int before = reports.count;
    const bool holds = made->checkIfAttributeConditionSatisfiedForEventAndAttributes(event, record);
    fuzz::check(reports.count == before || !holds, "a condition that raises does not hold");
    return reports.count != before ? Verdict::Raised : holds ? Verdict::True : Verdict::False;
  };
  const Verdict verdict = evaluate();
  fuzz::check(evaluate() == verdict, "a repeated evaluation has the same result");
  return verdict;
}

// Whether negation inverts the result of this filter for a value that exists.
bool invertsAlways(const ZREventFilter& filter) {
  const ZRFilterOperator op = filter.filterOperator();
  switch (filter.dataType()) {
    case ZRFilterDataTypeString:
      return !filter.condValue().isNil() || op == ZRFilterOperatorExists;
    case ZRFilterDataTypeDouble:
      return op <= ZRFilterOperatorIn || op == ZRFilterOperatorExists;
    case ZRFilterDataTypeBool:
      return op == ZRFilterOperatorIs || op == ZRFilterOperatorExists;
    case ZRFilterDataTypeDatetime:
      return (op >= ZRFilterOperatorOn && op <= ZRFilterOperatorInTheNext) ||
             (op == ZRFilterOperatorBetween && filter.condValue().isArray());
    default:
      return false;
  }
}

Verdict verdictOfFilter(Reports& reports, Dictionary filter, bool negate, const Dictionary& record) {
  filter.set("negate", negate);
  return verdictOf(reports, {{"eventName", "E"}, {"filters", Value(Array{filter})}}, "E", record);
}

// Checks that a filter and its negation never both hold, and that one of them holds exactly where negation inverts.
// Returns the filter's verdict in its condition; empty for a filter that cannot be read.
std::optional<Verdict> checkFilter(Reports& reports, const Value& value, const Dictionary& record) {
  const Dictionary* dictionary = value.asDictionary();
  if (!dictionary) return std::nullopt;
  std::shared_ptr<ZREventFilter> filter;
  try {
    filter = ZREventFilter::initWithDictionary(*dictionary);
  } catch (const ValueError&) {
    return std::nullopt;
  }
  const Verdict plain = verdictOfFilter(reports, *dictionary, false, record);
  const Verdict negated = verdictOfFilter(reports, *dictionary, true, record);
  fuzz::check((plain == Verdict::Raised) == (negated == Verdict::Raised), "both raise or neither");
  if (plain != Verdict::Raised) {
    const Verdict exists = [&] {
      Dictionary other = *dictionary;
      other.set("operator", "exists");
      other.remove("value");
      return verdictOfFilter(reports, std::move(other), false, record);
    }();
    const bool present = exists == Verdict::True;
    const bool inverts = invertsAlways(*filter) && (present || filter->filterOperator() == ZRFilterOperatorExists);
    fuzz::check((plain != negated) == inverts, "negation inverts exactly where the filter is evaluated");
    fuzz::check(!(plain == Verdict::True && negated == Verdict::True), "they never both hold");
  }
  return filter->isNegate() ? negated : plain;
}

// The verdict of all filters together.
Verdict combined(Reports& reports, const Array& filters, bool oneSuffices, const Dictionary& record) {
  for (const Value& value : filters) {
    const Verdict verdict = checkFilter(reports, value, record).value_or(Verdict::False);
    if (verdict == Verdict::Raised) return verdict;
    if ((verdict == Verdict::True) == oneSuffices) return verdict;
  }
  return filters.empty() || !oneSuffices ? Verdict::True : Verdict::False;
}

}  // namespace

// The input: {"condition": {}, "event": any value, "record": {}}.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const std::shared_ptr<Reports> reports = startOnce();
  const auto parsed = platform::parseJSON(fuzz::textOf(data, size), {.depth = 16, .values = 500});
  if (!parsed || !parsed.value().isDictionary()) return 0;
  const Dictionary& input = *parsed.value().asDictionary();
  const Value condition = validObjectForKey(input, "condition");
  const Value record = validObjectForKey(input, "record");
  if (!condition.isDictionary() || !record.isDictionary()) return 0;

  const Value event = input.objectForKey("event");
  const Verdict verdict = verdictOf(*reports, *condition.asDictionary(), event, *record.asDictionary());
  const Value name = validObjectForKey(*condition.asDictionary(), "eventName");
  if (!event.isString() || !(name == event)) {
    fuzz::check(verdict == Verdict::False, "a condition on another event does not hold");
    return 0;
  }
  const Value filters = validObjectForKey(*condition.asDictionary(), "filters");
  if (!filters.isNil() && !filters.isArray()) {
    fuzz::check(verdict == Verdict::False, "filters that cannot be read do not hold");
    return 0;
  }
  const bool oneSuffices = validObjectForKey(*condition.asDictionary(), "filter_operator") == "or";
  const Array none;
  fuzz::check(
      combined(*reports, filters.isNil() ? none : *filters.asArray(), oneSuffices, *record.asDictionary()) == verdict,
      "the condition is its filters' verdicts");
  return 0;
}
