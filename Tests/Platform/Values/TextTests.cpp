#include "Platform/Values/Text.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace zorvane::platform {
namespace {

TEST(Utf8, EachInvalidSequenceBecomesOneReplacement) {
  // "?" stands for U+FFFD.
  const struct {
    const char* text;
    const char* repaired;
  } kCases[] = {
      {"plain text of more than eight bytes", "plain text of more than eight bytes"},
      {"ä€😀 \xED\x9F\xBF \xEE\x80\x80 \xF4\x8F\xBF\xBF", "ä€😀 \xED\x9F\xBF \xEE\x80\x80 \xF4\x8F\xBF\xBF"},
      {"12345678\xFFz", "12345678?z"},
      {"\x80\xBF", "??"},
      {"\xC3", "?"},
      {"\xC3z", "?z"},
      {"\xE2\x82", "?"},
      {"\xE2\x82z", "?z"},
      {"\xF0\x9F\x98", "?"},
      {"\xF0\x9F\x98\xC3\xA4", "?ä"},
      {"\xC0\xAF", "??"},            // overlong
      {"\xE0\x80\xAF", "???"},       //
      {"\xF0\x80\x80\xAF", "????"},  //
      {"\xED\xA0\x80", "???"},       // a surrogate
      {"\xF4\x90\x80\x80", "????"},  // above U+10FFFF
      {"\xF8\x88\x80\x80\x80", "?????"},
      {"\xFE\xFF", "??"},
  };
  for (const auto& [text, pattern] : kCases) {
    std::string expected;
    for (const char* c = pattern; *c; ++c) expected += *c == '?' ? std::string("\xEF\xBF\xBD") : std::string(1, *c);
    EXPECT_EQ(validUtf8(text), expected);
    EXPECT_TRUE(isValidUtf8(expected));
    EXPECT_EQ(isValidUtf8(text), expected == text);
  }
  EXPECT_TRUE(isValidUtf8(std::string_view("a\0b", 3)));
}

TEST(NumberText, IsTheShortestThatReadsBack) {
  const struct {
    double number;
    const char* text;
  } kCases[] = {
      {0, "0"},
      {-0.0, "-0"},
      {5, "5"},
      {1.5, "1.5"},
      {0.1 + 0.2, "0.30000000000000004"},
      {0.0001, "0.0001"},
      {0.00001, "1e-05"},
      {1e16, "10000000000000000"},
      {1e17, "1e+17"},
      {1.5e22, "1.5e+22"},
      {123456789.25, "123456789.25"},
      {5e-324, "5e-324"},
      {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
      {-std::numeric_limits<double>::infinity(), "-inf"},
      {std::nan(""), "nan"},
  };
  for (const auto& [number, text] : kCases) EXPECT_EQ(textOfDouble(number), text);
  std::mt19937_64 random(1);
  for (int i = 0; i < 20'000; ++i) {
    const auto number = std::bit_cast<double>(random());
    if (!std::isfinite(number)) continue;
    ASSERT_EQ(leadingDouble(textOfDouble(number)), number);
  }
  EXPECT_EQ(fixedTextOfDouble(2.5, 0), "2");
  EXPECT_EQ(fixedTextOfDouble(-1.005, 6), "-1.005000");
  EXPECT_EQ(fixedTextOfDouble(1e300, 1).size(), 303U);
}

TEST(NumberText, IsAbsentWhereNoNumberStandsInFront) {
  for (const char* text :
       {"", " ", "x1", "-", "+", ".", "-.", "--5", "+-5", "-+5", "..5", ".e5", "e5", "nan", "-inf"}) {
    EXPECT_EQ(leadingDouble(text), std::nullopt) << text;
    EXPECT_EQ(leadingInteger(text), std::nullopt) << text;
  }
}

TEST(FormatText, ReplacesPlaceholdersInOrderAndOnlyThose) {
  EXPECT_EQ(formatText("%@ has %ld of %f%%, %@", {"%ld%@", 7.9, 0.5, Value()}), "%ld%@ has 7 of 0.500000%, (null)");
  EXPECT_EQ(formatText("%@ %d %", {"a", "b"}), "a %d %");
  EXPECT_EQ(formatText("%@%@", {1}), "1%@");
  EXPECT_EQ(formatText("", {1}), "");
}

}  // namespace
}  // namespace zorvane::platform
