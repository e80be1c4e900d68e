#include <stdlib.h>
#include <time.h>

#include <cmath>
#include <random>
#include <thread>

#include "Platform/Formats/JSON.h"
#include "Platform/Time/DateFormat.h"
#include "Support/ModuleTest.h"
#include "ZRAnalytics/Utils/ZRConditionEvaluator/ZREventCondition.h"
#include "ZorvaneCore/ZRCoreConstants.h"

namespace zorvane::testing {
namespace {

// An array as a value, which braces would unwrap.
Value list(Array elements) {
  return elements;
}

const Dictionary& dictionaryAt(const Dictionary& dictionary, std::string_view key) {
  return *dictionary.find(key)->asDictionary();
}

Dictionary conditionOf(Dictionary filter, bool negate = false) {
  filter.set("name", "a");
  filter.set("negate", negate);
  return {{"eventName", "E"}, {"filters", list({filter})}};
}

// The record of an event with that value (nil for none) where the filter looks for it.
Dictionary recordOf(const Dictionary& filter, const Value& value) {
  if (value.isNil()) return {};
  if (!(filter.objectForKey("data_type") == "datetime")) return {{"EVENT_ATTRS", Dictionary{{"a", value}}}};
  Value milliseconds = value;
  if (value.isString()) {
    const auto date = platform::dateOfText(*value.asString(), kZRDateFormatISO8601MilliSec, 0);
    if (date) milliseconds = date->secondsSince1970 * 1000.0;
  }
  return {{"EVENT_ATTRS_CUST", Dictionary{{"timestamp", list({Dictionary{{"a", milliseconds}}})}}}};
}

class ConditionTest : public ModuleTest {
 protected:
  ConditionTest() { setZone("UTC0"); }

  static void setZone(const std::string& zone) {
    ::setenv("TZ", zone.c_str(), 1);
    ::tzset();
  }
  void setNow(const std::string& text) { clock_->setNow(*platform::dateOfText(text, kZRDateFormatISO8601MilliSec, 0)); }
  static bool holds(const Dictionary& condition, const Value& event, const Dictionary& record) {
    return ZREventCondition::initWithDictionary(condition)->checkIfAttributeConditionSatisfiedForEventAndAttributes(
        event, record);
  }
  // An exception in an evaluation, and nothing else, was reported so often since the last time.
  void expectReports(std::size_t count) {
    const auto errors = log_->errors();
    EXPECT_EQ(errors.size(), count);
    for (const auto& error : errors) {
      EXPECT_EQ(error.file, "ZREventCondition");
      EXPECT_EQ(error.line, 98);
      EXPECT_EQ(error.operation, "checkIfAttributeConditionSatisfiedForEventAndAttributes");
      EXPECT_TRUE(error.message.starts_with("Exception in checking  Conditions no ")) << error.message;
    }
    log_->clear();
  }
  // The value, for a plain and for a negated filter: "holds" (true, false), "fails" (false, true), "never" (false,
  // false), "raises" (the same, reported).
  void expectOutcome(const std::string& outcome, const Dictionary& filter, const Value& value) {
    SCOPED_TRACE(outcome + " of " + platform::jsonText(filter) + " for " + platform::jsonText(value));
    const Dictionary record = recordOf(filter, value);
    EXPECT_EQ(holds(conditionOf(filter), "E", record), outcome == "holds");
    EXPECT_EQ(holds(conditionOf(filter, true), "E", record), outcome == "fails");
    expectReports(outcome == "raises" ? 2 : 0);
  }
  void expectRow(const Dictionary& row) {
    setZone(row.contains("zone") ? row.objectForKey("zone").description() : "UTC0");
    setNow(row.contains("now") ? row.objectForKey("now").description() : "2026-11-21T10:00:00.000Z");
    if (row.contains("condition")) {
      SCOPED_TRACE(platform::jsonText(row));
      EXPECT_EQ(holds(dictionaryAt(row, "condition"), row.objectForKey("event"), dictionaryAt(row, "record")),
                row.objectForKey("holds").boolValue());
      expectReports(row.contains("error") ? 1 : 0);
      return;
    }
    Array filters{dictionaryAt(row, "filter")};
    if (const Value* operators = row.find("operators")) {
      filters.assign(operators->asArray()->size(), filters.front());
      for (std::size_t i = 0; i < filters.size(); ++i) {
        filters[i].mutableDictionary().set("operator", (*operators->asArray())[i]);
      }
    }
    for (const Value& filter : filters) {
      for (const char* outcome : {"holds", "fails", "never", "raises"}) {
        const Value values = row.objectForKey(outcome);
        if (!values.isArray()) continue;
        for (const Value& value : *values.asArray()) expectOutcome(outcome, *filter.asDictionary(), value);
      }
      if (const Value* outcome = row.find("missing")) {
        expectOutcome(outcome->description(), *filter.asDictionary(), Value());
      }
    }
  }
};

// Rows of conditions.json: a filter on the attribute "a" with the values of which it holds, fails, ... ("missing" for
// none; ISO text stands for a date), under several "operators" where given; or a condition, an event and its record.
TEST_F(ConditionTest, DecidesAsTheTableSays) {
  start();
  const auto table =
      platform::parseJSON(readAll(ZR_SOURCE_DIR "/Tests/ZRAnalytics/Utils/ZRConditionEvaluator/conditions.json"));
  ASSERT_TRUE(table) << table.error().message;
  ASSERT_GT(table.value().asArray()->size(), 150u);
  for (const Value& row : *table.value().asArray()) expectRow(*row.asDictionary());
}

TEST_F(ConditionTest, KindsThatNoServiceSendsAreRead) {
  start();
  const Dictionary number{{"data_type", "double"}, {"operator", "is"}, {"value", std::nan("")}};
  expectOutcome("fails", number, std::nan(""));
  expectOutcome("fails", {{"data_type", "double"}, {"operator", "between"}, {"value", 1}, {"value1", 2}}, std::nan(""));
  expectOutcome("fails", {{"data_type", "double"}, {"operator", "in"}, {"value", list({std::nan("")})}}, std::nan(""));
  const Dictionary text{{"data_type", "string"}, {"operator", "is"}, {"value", URL{"http://A"}}};
  expectOutcome("holds", text, URL{"HTTP://a"});
  Dictionary day{{"data_type", "datetime"}, {"operator", "on"}, {"value", URL{"2026-11-21T10:00:00.000Z"}}};
  expectOutcome("holds", day, kStart * 1000);
  expectOutcome("fails", day, std::nan(""));  // no day at all
  day.set("value", "no day either");
  expectOutcome("fails", day, std::nan(""));
  day.set("operator", "today");
  expectOutcome("fails", day, HUGE_VAL);
  day.set("value", Date{kStart});  // its text is none of the pattern
  day.set("operator", "inTheNext");
  expectOutcome("fails", day, kStart * 1000 + 1);
}

TEST_F(ConditionTest, FilterThatCannotBeReadNeverHoldsAndIsReported) {
  start();
  const Dictionary good{{"name", "a"}, {"data_type", "string"}, {"operator", "exists"}};
  const Dictionary record{{"EVENT_ATTRS", Dictionary{{"a", 1}}}};
  Dictionary unreadable = good;
  unreadable.set("negate", list({1}));
  for (const Value& filters : {list({"text", good}), list({good, null}), list({unreadable}), Value(good), Value(1)}) {
    EXPECT_FALSE(holds({{"eventName", "E"}, {"filters", filters}}, "E", record)) << filters.description();
    EXPECT_EQ(log_->errors().size(), 1u);
    log_->clear();
  }
  EXPECT_TRUE(
      holds({{"eventName", "E"}, {"filter_operator", "or"}, {"filters", list({unreadable, good})}}, "E", record));
}

TEST_F(ConditionTest, ReadsItsFields) {
  const auto filter = ZREventFilter::initWithDictionary({{"name", "n"},
                                                         {"data_type", "datetime"},
                                                         {"operator", "inTheNext"},
                                                         {"negate", "yes"},
                                                         {"case_sensitive", 1},
                                                         {"value_type", "relative_future"},
                                                         {"value", 1},
                                                         {"value1", "2"}});
  EXPECT_EQ(filter->condAttrName(), Value("n"));
  EXPECT_EQ(filter->dataType(), 1);
  EXPECT_EQ(filter->filterOperator(), 14);
  EXPECT_EQ(filter->filterValueType(), 2);
  EXPECT_TRUE(filter->isNegate() && filter->isCaseSensitive());
  EXPECT_EQ(filter->condValue(), Value(Array{1, "2"}));
  const auto text = ZREventFilter::initWithDictionary({{"data_type", "string"}, {"value_type", "relative_past"}});
  EXPECT_EQ(text->filterValueType(), 0);
  EXPECT_EQ(text->filterOperator(), 15);
  EXPECT_TRUE(text->condValue().isNil());
  EXPECT_EQ(ZREventFilter::getDataType("text"), 4);
  const auto condition = ZREventCondition::initWithDictionary(
      {{"eventName", "E"}, {"filter_operator", "or"}, {"filters", Array{Dictionary()}}});
  EXPECT_EQ(condition->eventName(), Value("E"));
  EXPECT_EQ(condition->filterOperator(), 1);
  EXPECT_EQ(condition->filters().size(), 1u);
}

TEST_F(ConditionTest, DateChecksLogWhatTheyCompare) {
  start();
  setZone("IST-5:30");
  const Dictionary on{{"data_type", "datetime"}, {"operator", "on"}, {"value", "2026-11-21T20:00:00.000Z"}};
  holds(conditionOf(on), "E", recordOf(on, 1795255200500));
  const std::string attribute =
      "Date Condition Check : Attr Date(2026-11-21 10:00:00 +0000), EpochValue(1795255200.500000), "
      "StringVal(2026-11-21)";
  EXPECT_EQ(log_->messages(),
            (std::vector<std::string>{
                attribute,
                "Date Condition Check : Cond Date(2026-11-21 20:00:00 +0000) ||  EpochValue(1795291200.000000) "
                "|| EpochStartOfDay(1795305600.000000) || StringVal(2026-11-21) || "
                "EpochToday(1795255200.000000) "}));
  log_->clear();
  const Dictionary between{
      {"data_type", "datetime"}, {"operator", "between"}, {"value", "2026-11-21T20:00:00.000Z"}, {"value1", "soon"}};
  holds(conditionOf(between), "E", recordOf(between, 1795255200500));
  EXPECT_EQ(log_->messages(),
            (std::vector<std::string>{attribute,
                                      "Date BETWEEN Check : lowerdate(2026-11-22 00:00:00 +0000) and "
                                      "epoch(1795305600.000000) || upperdate((null)) and epoch(0.000000)"}));
  log_->clear();
  const Dictionary soon{{"data_type", "datetime"}, {"operator", "before"}, {"value", "soon"}};
  holds(conditionOf(soon), "E", recordOf(soon, 1795255200500));
  EXPECT_EQ(log_->messages().back(),
            "Date Condition Check : Cond Date((null)) ||  EpochValue(0.000000) || EpochStartOfDay(0.000000) || "
            "StringVal((null)) || EpochToday(1795255200.000000) ");
}

// Makes conditions and records of which most parts fit together.
class RandomPairs {
 public:
  Dictionary filter() {
    Dictionary filter;
    filter.setObjectNilHandledForKey(oneOf({"string", "datetime", "bool", "double", "string", "text", 1, nullptr}),
                                     "data_type");
    filter.setObjectNilHandledForKey(
        oneOf({"is", "between", "lessThan", "greaterThan", "in", "contains", "startsWith", "endsWith", "on", "exists",
               "before", "after", "today", "inTheLast", "inTheNext", "near", nullptr}),
        "operator");
    filter.setObjectNilHandledForKey(oneOf({"relative_past", "relative_future", nullptr}), "value_type");
    filter.setObjectNilHandledForKey(oneOf({true, false, nullptr}), "case_sensitive");
    filter.setObjectNilHandledForKey(value(2), "value");
    if (random_() % 3 == 0) filter.setObjectNilHandledForKey(value(1), "value1");
    return filter;
  }
  Value value(int depth) {
    if (depth > 0 && random_() % 3 == 0) {
      Array elements;
      for (auto left = random_() % 4; left > 0; --left) {
        Value element = value(depth - 1);
        if (!element.isNil()) elements.push_back(std::move(element));
      }
      return elements;
    }
    return oneOf({nullptr,    null,
                  true,       false,
                  0,          1,
                  -3,         INT64_MIN,
                  INT64_MAX,  2.5,
                  1e300,      std::nan(""),
                  -HUGE_VAL,  1795255200000,
                  "",         "a",
                  "A",        "\xC3\x84\xE1\xBA\x9E",
                  "7",        "2026-11-21T10:00:00.000Z",
                  Date{1e12}, URL{"u"},
                  Data{{1}},  Dictionary{{"k", 1}}});
  }

 private:
  const Value& oneOf(const Array& choices) { return oneOf_ = choices[random_() % choices.size()]; }

  std::mt19937 random_{2026};
  Value oneOf_;
};

TEST_F(ConditionTest, RandomFilterAndItsNegationNeverBothHold) {
  start();
  RandomPairs pairs;
  int complementary = 0;
  for (int i = 0; i < 10000; ++i) {
    const Dictionary filter = pairs.filter();
    const Value value = pairs.value(2);
    const Dictionary record = recordOf(filter, value);
    const bool plain = holds(conditionOf(filter), "E", record);
    const bool negated = holds(conditionOf(filter, true), "E", record);
    const std::size_t reports = log_->errors().size();
    EXPECT_FALSE(plain && negated) << platform::jsonText(filter) << platform::jsonText(value);
    EXPECT_TRUE(reports == 0 || (reports == 2 && !plain && !negated))
        << platform::jsonText(filter) << platform::jsonText(value);
    complementary += plain != negated ? 1 : 0;
    log_->clear();
  }
  EXPECT_GT(complementary, 2000);
}

TEST_F(ConditionTest, EightThreadsEvaluateOneConditionAtOnce) {
  start();
  setZone("CET-1CEST,M3.5.0,M10.5.0/3");
  RandomPairs pairs;
  struct Pair {
    std::shared_ptr<const ZREventCondition> condition;
    Dictionary record;
    bool expected;
  };
  std::vector<Pair> all;
  for (int i = 0; i < 500; ++i) {
    const Dictionary filter = pairs.filter();
    Pair pair{ZREventCondition::initWithDictionary(conditionOf(filter, i % 2 == 0)), recordOf(filter, pairs.value(2)),
              false};
    pair.expected = pair.condition->checkIfAttributeConditionSatisfiedForEventAndAttributes("E", pair.record);
    all.push_back(std::move(pair));
  }
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&all] {
      for (const Pair& pair : all) {
        EXPECT_EQ(pair.condition->checkIfAttributeConditionSatisfiedForEventAndAttributes("E", pair.record),
                  pair.expected);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace zorvane::testing
