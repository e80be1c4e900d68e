#include <stdlib.h>
#include <time.h>

#include <cmath>

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

// An event record that holds the value where the filter looks for it; no attribute for nil. ISO text becomes a date.
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
  // Only evaluations reported errors since the last call, this many.
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
  // Results of the plain and the negated filter: "holds": true, false; "fails": false, true; "never": false, false;
  // "raises": false, false, and both report an error.
  void expectOutcome(const std::string& outcome, const Dictionary& filter, const Value& value) {
    SCOPED_TRACE(outcome + " of " + platform::jsonText(filter) + " for " + platform::jsonText(value));
    const Dictionary record = recordOf(filter, value);
    EXPECT_EQ(holds(conditionOf(filter), "E", record), outcome == "holds");
    EXPECT_EQ(holds(conditionOf(filter, true), "E", record), outcome == "fails");
    expectReports(outcome == "raises" ? 2 : 0);
  }
  void expectRow(const Dictionary& row) {
    if (row.contains("comment")) return;
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
      filters.assign(operators->asArray()->size(), Value(filters.front()));
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

// A row of conditions.json is a filter on the attribute "a" with values for each outcome ("missing": the attribute is
// absent), repeated for each of its "operators"; or it is a condition with an event, a record and the result.
TEST_F(ConditionTest, FollowsTheTable) {
  start();
  const auto table =
      platform::parseJSON(readAll(ZR_SOURCE_DIR "/Tests/ZRAnalytics/Utils/ZRConditionEvaluator/conditions.json"));
  ASSERT_TRUE(table) << table.error().message;
  ASSERT_GT(table.value().asArray()->size(), 150u);
  for (const Value& row : *table.value().asArray()) expectRow(*row.asDictionary());
}

TEST_F(ConditionTest, UnusualTypesAreAccepted) {
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

TEST_F(ConditionTest, DateChecksLogTheirDates) {
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

}  // namespace
}  // namespace zorvane::testing
