// Parts of zrhost that scripts cannot test completely.

#include <gtest/gtest.h>
#include <unistd.h>

#include "Host/HostApplication.h"
#include "Host/HostClock.h"
#include "Host/Script.h"

namespace zorvane::host {
namespace {

TEST(LineReader, GivesEachLineAsSoonAsItsEndIsThere) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  LineReader reader(ends[0]);
  const auto send = [&](const std::string& text) {
    ASSERT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  };
  const std::string wide(50'000, 'x');
  send("first\n\nthi");
  EXPECT_EQ(reader.next(), "first");
  EXPECT_EQ(reader.next(), "");
  send("rd\n" + wide);
  EXPECT_EQ(reader.next(), "third");
  send(wide + "\nno end");
  ::close(ends[1]);
  EXPECT_EQ(reader.next(), wide + wide);
  EXPECT_EQ(reader.next(), "no end");
  EXPECT_EQ(reader.next(), std::nullopt);
}

TEST(StandingClock, ShortWaitsAddUp) {
  StandingClock clock({1795255200.1});
  const double start = clock.now().secondsSince1970;
  for (int i = 0; i < 1000; ++i) clock.advanceTo(clock.ticks() + StandingClock::ticksOf(0.1));
  EXPECT_EQ(clock.monotonicSeconds(), 100.0);
  EXPECT_EQ(clock.now().secondsSince1970, start + 100);
  clock.setNow({0});
  EXPECT_EQ(clock.monotonicSeconds(), 100.0);
  EXPECT_EQ(clock.now().secondsSince1970, 0);
  for (const double deadline : {100.1, 100.2000001, 123.4567891, 1e9 / 3}) {
    clock.advanceTo(StandingClock::ticksReaching(deadline));
    EXPECT_GE(clock.monotonicSeconds(), deadline);
    EXPECT_LT(clock.monotonicSeconds(), deadline + 2e-6);
  }
}

TEST(HostApplication, OnlyARunningTaskExpires) {
  Trace trace(-1);
  HostApplication application(trace);
  int older = 0;
  int newer = 0;
  EXPECT_FALSE(application.expire("sync"));
  EXPECT_EQ(application.beginBackgroundTask("sync", [&] { ++older; }), 1u);
  EXPECT_EQ(application.beginBackgroundTask("sync",
                                            [&] {
                                              ++newer;
                                              application.endBackgroundTask(2);
                                            }),
            2u);
  EXPECT_TRUE(application.expire("sync"));
  EXPECT_EQ(std::pair(older, newer), std::pair(0, 1));
  EXPECT_TRUE(application.expire("sync"));
  EXPECT_EQ(std::pair(older, newer), std::pair(1, 1));
  application.endBackgroundTask(1);
  application.endBackgroundTask(1);
  application.endBackgroundTask(platform::kNoBackgroundTask);
  EXPECT_TRUE(application.expire("sync"));
  EXPECT_EQ(std::pair(older, newer), std::pair(1, 1));
}

}  // namespace
}  // namespace zorvane::host
