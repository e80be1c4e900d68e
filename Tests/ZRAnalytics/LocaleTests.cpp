// A locale with a decimal comma.
#include <clocale>
#include <cstdlib>

#include "Platform/Formats/PropertyList.h"
#include "ZRAnalytics/UserTest.h"

namespace zorvane::testing {
namespace {

class LocaleTest : public UserTest {};

TEST_F(LocaleTest, HostLocaleDoesNotChangeNumbers) {
  // glibc needs no installed sources for this one.
  writeAll(directory_ / "numbers",
           "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3\nEND LC_NUMERIC\n");
  writeAll(directory_ / "ascii", "<escape_char> /\nCHARMAP\n<U0000>..<U007F> /x00\nEND CHARMAP\n");
  const std::string compile = "cd " + directory_.string() + " && localedef --quiet -c -f ./ascii -i ./numbers ./comma";
  (void)!std::system(compile.c_str());
  setenv("LOCPATH", directory_.c_str(), 1);
  ASSERT_TRUE(std::setlocale(LC_ALL, "comma")) << compile;
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
