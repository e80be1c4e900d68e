#include "Platform/Formats/JSON.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace zorvane::platform {
namespace {

TEST(JSON, ReadsEachKindAsItself) {
  const struct {
    const char* text;
    Value value;
  } cases[] = {
      {"null", null},
      {" \t\r\n true ", true},
      {"0", 0},
      {"-0", 0},
      {"9007199254740993", std::int64_t{9007199254740993}},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
      {"9223372036854775808", 9223372036854775808.0},
      {"2.0", 2.0},
      {"1e2", 100.0},
      {"-1.5E-1", -0.15},
      {R"("a\"\\\/\b\f\n\r\t")", "a\"\\/\b\f\n\r\t"},
      {R"("\u00e9\u20AC\ud83d\ude00")", "é€😀"},
      {R"("\ud83d \ude00 \ud83d\ud83d\ude00 \ud83d\n")", "� � �😀 �\n"},
      {R"("\u0000")", std::string(1, '\0')},
      {"[]", Array{}},
      {"[1,[ ] , {\"a\" :null}]", Array{1, Array{}, Dictionary{{"a", null}}}},
      {R"({"a":1,"b":2,"a":3})", Dictionary{{"a", 3}, {"b", 2}}},
  };
  for (const auto& [text, value] : cases) {
    const auto parsed = parseJSON(text);
    ASSERT_TRUE(parsed) << text << ": " << parsed.error().message;
    EXPECT_EQ(parsed.value().kind(), value.kind()) << text;
    EXPECT_EQ(parsed.value(), value) << text;
  }
}

TEST(JSON, RefusesWhatTheGrammarDoesNotHold) {
  const std::vector<const char*> groups[] = {
      // words
      {"", " ", "nul", "nulll", "True", "NaN", "1 2", "'a'", "/**/1", "\xEF\xBB\xBF 1"},
      // numbers
      {"01", "-", "+1", "1.", ".5", "1e", "1e+", "0x1", "1e999"},
      // containers
      {"[1,]", "[1 2]", "[", "[1", "]", "[1}", "{\"a\"}", "{\"a\":}", "{\"a\":1,}", "{a:1}", "{1:1}", "{\"a\":1"},
      // strings
      {"\"a", "\"\\", "\"\\x\"", "\"\\u12\"", "\"\\ud83d\\u\"", "\"\n\"", "\"\xFF\"", "\"\xED\xA0\x80\""},
  };
  for (const auto& texts : groups) {
    for (const char* text : texts) EXPECT_FALSE(parseJSON(text)) << text;
  }
  EXPECT_FALSE(parseJSON(std::string_view("1\0", 2)));
  EXPECT_EQ(parseJSON("[1,\n x]").error().message, "no value begins at byte 5");
}

TEST(JSON, DepthAndCountAreBounded) {
  const auto nested = [](std::size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); };
  EXPECT_TRUE(parseJSON(nested(512)));
  EXPECT_FALSE(parseJSON(nested(513)));
  EXPECT_FALSE(parseJSON(nested(3), {.depth = 2, .values = 9}));
  EXPECT_TRUE(parseJSON("[1,2]", {.depth = 9, .values = 3}));
  EXPECT_FALSE(parseJSON("[1,2,3]", {.depth = 9, .values = 3}));
}

TEST(JSON, WritesCompactlyAndKeepsKinds) {
  const struct {
    Value value;
    const char* text;
  } cases[] = {
      {Dictionary{{"b", true}, {"a", Array{1, 1.0, -0.0, 0.1, 1e22, 1e300}}},
       R"({"b":true,"a":[1,1.0,-0.0,0.1,1e+22,1e+300]})"},
      {"\"\\/\n\x01\x7f é\u2028", "\"\\\"\\\\/\\n\\u0001\x7f é\u2028\""},
      {Array{}, "[]"},
      {Dictionary{}, "{}"},
      {Array{Value(), null, std::nan(""), -INFINITY}, "[null,null,null,null]"},
      {Date{1700000000.123}, "\"2023-11-14T22:13:20.123Z\""},
      {Date{-0.5}, "\"1969-12-31T23:59:59.500Z\""},
      {Date{std::nan("")}, "null"},
      {Data{{0x00, 0xAB, 0xff}}, "\"00abff\""},
      {URL{"https://a/b?c=\"d\""}, R"("https://a/b?c=\"d\"")"},
  };
  for (const auto& [value, text] : cases) EXPECT_EQ(jsonText(value), text);
}

// An object whose plain value breaks the rule and is an object again.
struct Endless final : Object, std::enable_shared_from_this<Endless> {
  std::string description() const override { return "endless"; }
  Value plainValue() const override { return shared_from_this(); }
};

TEST(JSON, WhatItCannotHoldIsWrittenAsNull) {
  Value deep = 1;
  for (int i = 0; i < 600; ++i) deep = Array{deep};
  EXPECT_EQ(jsonText(deep), std::string(512, '[') + "null" + std::string(512, ']'));
  EXPECT_EQ(jsonText(Array{std::make_shared<const Endless>(), 1}), "[null,1]");
}

TEST(JSON, ALazyPartIsWrittenByItsWriterAndReadByItsPlainValue) {
  const Value part = lazyJSON([](std::string& out) { out += "[ 1 ]"; }, [] { return Value(Array{1}); });
  const Value same = lazyJSON([](std::string& out) { out += "x"; }, [] { return Value(Array{1}); });
  EXPECT_EQ(jsonText(Dictionary{{"a", part}}), R"({"a":[ 1 ]})");
  EXPECT_EQ(part, same);
  EXPECT_EQ(part.description(), Value(Array{1}).description());
}

}  // namespace
}  // namespace zorvane::platform
