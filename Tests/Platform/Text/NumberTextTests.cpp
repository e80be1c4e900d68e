#include "Platform/Text/NumberText.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace zorvane::platform {
namespace {

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

}  // namespace
}  // namespace zorvane::platform
