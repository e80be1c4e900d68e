// Jumps of the wall clock, and a locale with a decimal comma.
#include <clocale>
#include <cstdlib>
#include <map>

#include "Platform/Formats/PropertyList.h"
#include "Platform/Text/NumberText.h"
#include "ZRAnalytics/UserTest.h"

namespace zorvane::testing {
namespace {

class TimeTest : public UserTest {
 protected:
  static bool setAttribute() { return handler().setUserAttributeValueWithNameCheckStorage("x", "a", true); }
};

TEST_F(TimeTest, ClockJumpBetweenLaunchesLosesNoEvent) {
  const struct {
    double to;  // seconds since 1970; the clock stood at 2026-11-21 10:00:00
    const char* text;
    bool isLater;  // by more than the inactive duration and the caching duration
  } jumps[] = {
      // back: to the epoch and before it, to a leap day, by a second
      {0, "1970-01-01T00:00:00.000Z", false},
      {-86400.5, "1969-12-30T23:59:59.500Z", false},
      {1709164800, "2024-02-29T00:00:00.000Z", false},
      {1795255199, "2026-11-21T09:59:59.000Z", false},
      // forward: to a leap day, to a year without one, past 31 and 32 bits of seconds, to the last year
      {1835438400, "2028-02-29T12:00:00.000Z", true},
      {4107542399.5, "2100-02-28T23:59:59.500Z", true},
      {2147483648, "2038-01-19T03:14:08.000Z", true},
      {4294967296, "2106-02-07T06:28:16.000Z", true},
      {253402210800, "9999-12-30T23:00:00.000Z", true},
  };
  for (const auto& jump : jumps) {
    SCOPED_TRACE(jump.text);
    std::filesystem::remove_all(library("ZrvData"));
    inEarlierLaunch([&] {
      startWithSession();
      EXPECT_TRUE(setAttribute());
      track({"before"});
      events().saveCurrentBatch();
      handler().persistUserAttributesData();
      writeAll(documents("session"), sessionID().description());
    });
    inEarlierLaunch([&] {
      clock_->setNow(Date{jump.to});
      startWithSession();
      EXPECT_EQ(sessionID() != Value(readAll(documents("session"))), jump.isLater)
          << "a session whose last interaction lies ahead stays alive";
      EXPECT_EQ(setAttribute(), jump.isLater) << "an attribute sent in the future is still cached";
      track({"after"});
      Answers answers;
      events().flushWithCompletionBlock(into(answers));
      settle();
      EXPECT_EQ(answers, (Answers{{true, true}}));
      std::map<std::string, Dictionary> metaOf;  // by event
      for (const auto& request : service_->requests()) {
        const Dictionary& body = *request.body.asDictionary();
        for (const auto& name : eventNames(*body.objectForKey("viewsInfo").asArray())) {
          metaOf[name] = *body.objectForKey("meta").asDictionary();
        }
      }
      const Value bid = metaOf.at("after").objectForKey("bid");
      EXPECT_NE(metaOf.at("before").objectForKey("bid"), bid);
      EXPECT_EQ(platform::leadingInteger(bid.description()), static_cast<std::int64_t>(jump.to * 1000));
      EXPECT_EQ(metaOf.at("after").objectForKey("request_time"), Value(jump.text));
      for (const Dictionary& event : reportedEvents()) {
        if (event.objectForKey("EVENT_ACTION") == "after") {
          EXPECT_EQ(event.objectForKey("EVENT_G_TIME"), Value(jump.text));
        }
      }
      EXPECT_FALSE(std::filesystem::exists(batchPath()));
    });
  }
}

TEST_F(TimeTest, HostLocaleDoesNotChangeNumbers) {
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
