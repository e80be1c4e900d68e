// Parts of zrhost that scripts cannot test completely.

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "Host/BatchText.h"
#include "Host/HostApplication.h"
#include "Host/HostClock.h"
#include "Host/Script.h"
#include "Support/TemporaryDirectory.h"

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
  EXPECT_EQ(StandingClock::ticksOfDeadline(10.002 + 30 + 30), 70'002'000) << "due at the end of a wait";
  for (const double deadline : {100.1, 100.2000001, 123.4567891, 1e9 / 3, 1e10 / 3}) {
    clock.advanceTo(StandingClock::ticksOfDeadline(deadline));
    EXPECT_GE(clock.monotonicSeconds() + 1e-6, deadline) << "where a timer is not due";
    EXPECT_LT(clock.monotonicSeconds(), deadline + 2e-6);
  }
}

TEST(BatchText, ASmallFileThatStandsForAHugeValueStaysSmall) {
  // Objects: two keys, a text, and arrays that hold the one before twice; then a batch of them, and the file.
  for (const int arrays : {3, 24}) {
    std::vector<std::string> objects{
        "\x51"
        "b",
        "\x56"
        "events",
        "\x51x"};
    const auto last = [&] { return static_cast<char>(objects.size() - 1); };
    for (int i = 0; i < arrays; ++i) objects.push_back({'\xa2', last(), last()});
    objects.push_back({'\xd1', 1, last()});
    objects.push_back({'\xd1', 0, last()});
    std::string file = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
      offsets += static_cast<char>(file.size());
      file += object;
    }
    std::string trailer(32, '\0');
    trailer[6] = trailer[7] = 1;
    trailer[15] = static_cast<char>(objects.size());
    trailer[23] = last();
    trailer[31] = static_cast<char>(file.size());
    const platform::TemporaryDirectory directory;
    std::ofstream(directory.file("batches")) << file << offsets << trailer;
    std::string text;
    const std::size_t leftOut = writeBatches(directory.file("batches"), [&](std::string_view piece) { text += piece; });
    EXPECT_EQ(text, arrays == 3 ? R"({"b":{"events":[[["x","x"],["x","x"]],[["x","x"],["x","x"]]]}})"
                                : R"({"b":{"events":[null,null]}})");
    EXPECT_EQ(leftOut, arrays == 3 ? 0u : 2u);
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
