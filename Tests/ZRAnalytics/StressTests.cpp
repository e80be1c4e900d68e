#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "ZRAnalytics/EventManagement/EventPipelineTest.h"
#include "ZRAnalytics/ZRAnalytics.h"

namespace zorvane::testing {
namespace {

constexpr int kThreads = 8;
constexpr int kEventsPerThread = 250;

class StressTest : public EventPipelineTest {
 protected:
  void startOnThreads(const Dictionary& configuration = {}) {
    host_.scheduler = platform::makeThreadScheduler(clock_);
    start(configuration);
  }
  void waitUntilIdle() { host_.scheduler->waitUntilIdle(); }
  static Value numberOf(const Value& event) {
    return event.asDictionary()->objectForKey("EVENT_ATTRS").asDictionary()->objectForKey("n");
  }
};

TEST_F(StressTest, NothingIsLostBetweenThreadsRefusalsSavesAndFlushes) {
  startOnThreads({{"event_batch_count", 20}, {"instant_flush_events", Array{"now"}}});
  // Written by the service one request at a time.
  std::map<std::string, Array> accepted;
  std::mt19937 random(7);
  bool refusing = true;
  service_->decide = [&](const FakeService::Request& request) {
    if (refusing && random() % 2 == 0) return 500;
    const Dictionary& body = *request.body.asDictionary();
    const std::string bid = body.objectForKey("meta").asDictionary()->objectForKey("bid").description();
    const Array batch = *body.objectForKey("viewsInfo").asArray();
    const auto [known, isNew] = accepted.emplace(bid, batch);
    EXPECT_TRUE(isNew || known->second == batch) << "two batches of one identifier";
    return 200;
  };
  ZRAnalytics& facade = ZRAnalytics::sharedInstance();
  facade.initializeAnalytics();
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < kEventsPerThread; ++i) {
        const int number = thread * kEventsPerThread + i;
        facade.trackEventWithProperties(i % 50 == 49 ? "now" : "E", ZRProperties::initWithAttributes({{"n", number}}));
        if (i % 16 == thread) facade.syncNow();
        if (i % 16 == thread + 8) events().saveCurrentBatch();
        if (i % 64 == thread) facade.processURL(URL{"app://x?utm_source=" + std::to_string(thread)});
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  waitUntilIdle();

  refusing = false;
  std::vector<bool> answers;
  facade.flushWithCompletionBlock([&](bool success) { answers.push_back(success); });
  waitUntilIdle();
  EXPECT_EQ(answers, (std::vector<bool>{true}));
  std::map<std::int64_t, int> seen;
  for (const auto& [bid, batch] : accepted) {
    for (const Value& event : batch) ++seen[numberOf(event).integerValue()];
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(kThreads * kEventsPerThread));
  for (const auto& [number, count] : seen) EXPECT_EQ(count, 1) << "event " << number << " stands in several batches";
  EXPECT_FALSE(std::filesystem::exists(batchPath()));
  EXPECT_TRUE(currentNames().empty());
  EXPECT_TRUE(log_->errors().empty());
}

}  // namespace
}  // namespace zorvane::testing
