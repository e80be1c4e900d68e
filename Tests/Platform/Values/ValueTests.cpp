#include "Platform/Values/Value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include "Platform/Values/FormatText.h"

namespace zorvane::platform {
namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

class Point final : public Object {
 public:
  std::string description() const override { return "1,2"; }
};

TEST(Value, TakesItsKindFromWhatItIsMadeOf) {
  char buffer[] = "text";
  char* text = buffer;
  const char* none = nullptr;
  const std::pair<Value::Kind, std::vector<Value>> kKinds[] = {
      {Value::Kind::Nil, {Value(), nullptr, none, std::shared_ptr<Point>()}},
      {Value::Kind::Null, {null}},
      {Value::Kind::Bool, {true}},
      {Value::Kind::Integer, {1, std::uint8_t{1}}},
      {Value::Kind::Double, {1.0F, std::uint64_t{1} << 63}},
      {Value::Kind::String, {"text", text, buffer, std::string_view("text")}},
      {Value::Kind::Data, {Data{{1}}}},
      {Value::Kind::Date, {Date{}}},
      {Value::Kind::URL, {URL{"a:b"}}},
      {Value::Kind::Array, {Value(Array{1})}},
      {Value::Kind::Dictionary, {Dictionary{{"a", 1}}}},
      {Value::Kind::Object, {std::make_shared<Point>()}},
  };
  for (const auto& [kind, values] : kKinds) {
    for (const Value& value : values) EXPECT_EQ(value.kind(), kind) << value.description();
  }
  static_assert(!std::is_constructible_v<Value, int*> && !std::is_constructible_v<Value, const void*>);
  EXPECT_EQ(*Value("a\xFFz").asString(), "a\xEF\xBF\xBDz");
  EXPECT_EQ(Value(URL{"\xFF"}).asURL()->absoluteString, "\xEF\xBF\xBD");
}

TEST(Value, ReadsNumbersOutOfNumbersAndText) {
  const struct {
    Value value;
    std::int64_t integer;
    double number;
    bool boolean;
  } kCases[] = {
      // nil, booleans and numbers
      {{}, 0, 0, false},
      {true, 1, 1, true},
      {-7, -7, -7, true},
      {0, 0, 0, false},
      {0.5, 0, 0.5, true},
      {-2.9, -2, -2.9, true},
      {1e300, kMax, 1e300, true},
      {-kInfinity, kMin, -kInfinity, true},
      {9223372036854775807.0, kMax, 9223372036854775807.0, true},
      // text, by its leading number
      {"12abc", 12, 12, true},
      {" \t\n-12.75e1x", -12, -127.5, true},
      {"+5", 5, 5, true},
      {".5", 0, 0.5, false},
      {"1,5", 1, 1, true},
      {"0x10", 0, 0, false},
      {"abc", 0, 0, false},
      {"nan", 0, 0, false},
      {"", 0, 0, false},
      // text out of range
      {"9223372036854775808", kMax, 9223372036854775808.0, true},
      {"-9223372036854775809", kMin, -9223372036854775808.0, true},
      {"1e999", 1, kInfinity, true},
      {"-1e999", -1, -kInfinity, true},
      {"1e-999", 1, 0, true},
      {"0." + std::string(400, '0') + "1", 0, 0, false},
      {std::string(400, '9') + "e-9", kMax, kInfinity, true},
      // text as a boolean
      {"Yes", 0, 0, true},
      {" tRUE", 0, 0, true},
      {"+0001", 1, 1, true},
      {"-0y", 0, 0, true},
      {"no1", 0, 0, false},
      {"--1", 0, 0, false},
  };
  for (const auto& [value, integer, number, boolean] : kCases) {
    EXPECT_EQ(value.integerValue(), integer) << value.description();
    EXPECT_EQ(value.doubleValue(), number) << value.description();
    EXPECT_EQ(value.boolValue(), boolean) << value.description();
  }
  EXPECT_EQ(Value(std::nan("")).integerValue(), 0);
  for (const Value& value : {Value(null), Value(Array{1}), Value(Dictionary()), Value(Date{1}), Value(URL{"1"})}) {
    EXPECT_THROW(static_cast<void>(value.integerValue()), ValueError);
    EXPECT_THROW(static_cast<void>(value.doubleValue()), ValueError);
    EXPECT_THROW(static_cast<void>(value.boolValue()), ValueError);
  }
}

TEST(Value, NumbersAreEqualByValueAndNothingElseAcrossKinds) {
  const auto point = std::make_shared<Point>();
  // Each row holds equal values; values of different rows differ.
  const std::vector<std::vector<Value>> kRows = {
      {Value(), nullptr},
      {null},
      {0, 0.0, -0.0, false},
      {1, 1.0, true},
      {"1"},
      {9007199254740992, 9007199254740992.0},
      {9007199254740993},
      {kMax},
      {9223372036854775808.0},
      {kMin, -9223372036854775808.0},
      {kInfinity},
      {"true"},
      {Date{1}, Date{1}},
      {Data{{1, 2}}, Data{{1, 2}}},
      {URL{"1"}, URL{"1"}},
      {Array{1, "a"}, Array{1.0, "a"}},
      {Array{"a", 1}, Array{"a", true}},
      {Dictionary{{"a", 1}, {"b", Array{true}}}, Dictionary{{"b", Array{1}}, {"a", true}}},
      {Dictionary{{"a", 1}}},
      {Dictionary{{"b", 1}}},
      {point, point},
      {std::make_shared<Point>()},
  };
  for (std::size_t i = 0; i < kRows.size(); ++i) {
    for (std::size_t j = 0; j < kRows.size(); ++j) {
      for (const Value& left : kRows[i]) {
        for (const Value& right : kRows[j]) {
          EXPECT_EQ(left == right, i == j) << left.description() << " and " << right.description();
        }
      }
    }
  }
  EXPECT_FALSE(Value(std::nan("")) == Value(std::nan("")));
}

TEST(Value, DescribesItselfForMessages) {
  const struct {
    Value value;
    const char* text;
  } kCases[] = {
      {{}, "(null)"},
      {null, "<null>"},
      {true, "1"},
      {false, "0"},
      {kMin, "-9223372036854775808"},
      {5.0, "5"},
      {0.1, "0.1"},
      {-0.00001234, "-1.234e-05"},
      {"%@", "%@"},
      {Date{1795255200}, "2026-11-21 10:00:00 +0000"},
      {Date{-0.5}, "1969-12-31 23:59:59 +0000"},
      {Date{1e300}, "1e+300"},
      {URL{"a:b?c"}, "a:b?c"},
      {Data{{0x00, 0xAF}}, "<00af>"},
      {std::make_shared<Point>(), "1,2"},
      {Array{}, "(\n)"},
      {Array{1, Dictionary{{"b", "x"}, {"a", Array{null}}}},
       "(\n    1,\n    {\n        b = x;\n        a = (\n            <null>\n        );\n    }\n)"},
  };
  for (const auto& [value, text] : kCases) EXPECT_EQ(value.description(), text);
}

TEST(FormatText, ReplacesPlaceholdersInOrderAndOnlyThose) {
  EXPECT_EQ(formatText("%@ has %ld of %f%%, %@", {"%ld%@", 7.9, 0.5, Value()}), "%ld%@ has 7 of 0.500000%, (null)");
  EXPECT_EQ(formatText("%@ %d %", {"a", "b"}), "a %d %");
  EXPECT_EQ(formatText("%@%@", {1}), "1%@");
  EXPECT_EQ(formatText("", {1}), "");
}

TEST(Value, CopiesAreIndependent) {
  Value original = Array{1, Dictionary{{"a", 1}}};
  Value copy = original;
  EXPECT_EQ(copy.asArray(), original.asArray());  // shared until written to
  copy.mutableArray()[1].mutableDictionary().set("a", 2);
  EXPECT_EQ(original, Value(Array{1, Dictionary{{"a", 1}}}));
  EXPECT_EQ(copy, Value(Array{1, Dictionary{{"a", 2}}}));
  const Array* unshared = copy.asArray();
  copy.mutableArray().push_back(3);
  EXPECT_EQ(copy.asArray(), unshared);
  copy = copy.asArray()->at(1);  // an element of itself
  EXPECT_EQ(copy, Value(Dictionary{{"a", 2}}));
  EXPECT_THROW(copy.mutableArray(), ValueError);
  EXPECT_THROW(Value().mutableArray(), ValueError);
}

// For ThreadSanitizer: the last holder writes in place what another thread has just read and released.
TEST(Value, LetsTheLastHolderWriteWhateverThreadReadBefore) {
  for (int round = 0; round < 200; ++round) {
    Value value = Array{1, 2, 3};
    std::thread reader([copy = value] { EXPECT_EQ((*copy.asArray())[0], Value(1)); });
    for (int i = 0; i < 100; ++i) value.mutableArray()[0] = 2;
    reader.join();
  }
}

TEST(Value, NestingDeeperThanAStackIsComparedDescribedAndDestroyed) {
  const auto nested = [](const Value& innermost) {
    Value value = innermost;
    for (int i = 0; i < 200'000; ++i) value = Array{Dictionary{{"a", std::move(value)}}, i};
    return value;
  };
  const Value one = nested(1);
  EXPECT_TRUE(one == nested(1.0));
  EXPECT_FALSE(one == nested("1"));
  EXPECT_FALSE(*one.asArray()->front().asDictionary() == Dictionary());
  const std::string description = one.description();
  EXPECT_NE(description.find("a = ..."), std::string::npos) << description.size();
  Value copy = one;
  copy.mutableArray().clear();
  EXPECT_TRUE(one.asArray()->size() == 2);
}

}  // namespace
}  // namespace zorvane::platform
