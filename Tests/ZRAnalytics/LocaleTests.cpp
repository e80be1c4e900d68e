// A locale with a decimal comma.
#include <clocale>
#include <cstdlib>

#include "Platform/Formats/PropertyList.h"
#include "ZRAnalytics/UserTest.h"

namespace zorvane::testing {
namespace {

class LocaleTest : public UserTest {};

TEST_F(LocaleTest, HostLocaleDoesNotChangeNumbers) {
  // Compiles the locale where the system lacks it.
  if (!std::setlocale(LC_ALL, "de_DE.UTF-8")) {
    const std::string made = (directory_ / "de_DE.UTF-8").string();
    (void)!std::system(("localedef -i de_DE -f UTF-8 " + made + " >/dev/null 2>&1").c_str());
    setenv("LOCPATH", directory_.c_str(), 1);
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8")) GTEST_SKIP() << "no locale with a decimal comma";
  }
  ASSERT_STREQ(std::localeconv()->decimal_point, ",");
  startWithSession();
  events().trackEventWithProperties(
      "E", ZRProperties::initWithAttributes({{"price", 1234567.5}, {"text", Value("3.5").doubleValue()}}));
  settle();
  events().saveCurrentBatch();
  Answers answers;
  flush(answers);
  settle();
  ASSERT_EQ(reportedEvents().size(), 1u);
  EXPECT_EQ(reportedEvents()[0].objectForKey("EVENT_ATTRS"), Value(Dictionary{{"price", 1234567.5}, {"text", 3.5}}));
  EXPECT_EQ(Value(1234567.5).description(), "1234567.5");
  const auto xml = platform::parsePropertyList("<plist><array><real>2.5</real></array></plist>");
  ASSERT_TRUE(xml);
  EXPECT_EQ(xml.value(), Value(Array{2.5}));
}

}  // namespace
}  // namespace zorvane::testing
