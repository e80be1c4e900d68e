#include "Platform/Files/FileSystem.h"
#include "ZRAnalytics/EventManagement/EventPipelineTest.h"

namespace zorvane::testing {
namespace {

class BatchSaverTest : public EventPipelineTest {
 protected:
  // Three batches of three events are full, and nothing is stored yet.
  void fillThree() {
    startWithSession({{"event_batch_count", 3}});
    int recorded = 0;
    for (const Names& names : kThree) {
      for (const std::string& name : names) {
        events().trackEventWithPropertiesWithCompletionBlock(name, nullptr, [&recorded] { ++recorded; });
      }
    }
    while (recorded < 9) scheduler_->runOne();
    EXPECT_EQ(batchFile().size(), 0u);
    EXPECT_EQ(currentNames(), Names());
  }

  const Batches kThree = {{"a", "b", "c"}, {"d", "e", "f"}, {"g", "h", "i"}};
};

TEST_F(BatchSaverTest, BatchesThatFillTogetherAreStoredInOneWriteAndSent) {
  fillThree();
  int writes = 0;
  platform::FileIdentity last;
  while (scheduler_->runOne()) {
    const auto identity = platform::fileIdentity(batchPath());
    if (!identity || !identity.value() || *identity.value() == last) continue;
    last = *identity.value();
    ++writes;
  }
  EXPECT_EQ(writes, 1);
  EXPECT_EQ(sentNames(), kThree);
}

TEST_F(BatchSaverTest, SaveReturnsWithEveryFullBatchOnTheDisk) {
  fillThree();
  events().saveCurrentBatch();
  EXPECT_EQ(savedNames(), kThree);
}

TEST_F(BatchSaverTest, FullBatchThatWasClearedIsNotStored) {
  fillThree();
  events().clearEventsdata();
  settle();
  EXPECT_EQ(sentNames(), Batches());
  EXPECT_FALSE(std::filesystem::exists(batchPath()));
}

TEST_F(BatchSaverTest, FullBatchesThatCannotBeStoredGoBackInTheirOrder) {
  fillThree();
  std::filesystem::create_directory(batchPath());
  track({"j"});
  EXPECT_EQ(currentNames(), (Names{"a", "b", "c", "d", "e", "f", "g", "h", "i", "j"}));
}

TEST_F(BatchSaverTest, DroppingReachesFullBatchesThatAreNotStoredYet) {
  startWithSession();
  ZRCurrentBatch current(2);
  ZRBatchFile file(batchPath());
  ZRBatchSaver saver(current, file, [] {});
  for (const char* name : {"a", "b"}) current.append({{"EVENT_ACTION", name}});
  saver.saveSoon();
  current.append({{"EVENT_ACTION", "c"}});
  EXPECT_TRUE(saver.keepIf([](const Value& record) { return eventNames({record}) != Names{"a"}; }));
  settle();
  EXPECT_EQ(savedNames(), (Batches{{"b", "c"}}));

  for (const char* name : {"d", "e"}) current.append({{"EVENT_ACTION", name}});
  saver.saveSoon();
  EXPECT_TRUE(saver.keepIf([](const Value& /*record*/) { return false; }));
  EXPECT_FALSE(current.append({{"EVENT_ACTION", "f"}}));
  EXPECT_TRUE(current.append({{"EVENT_ACTION", "g"}})) << "full as if nothing had failed";
}

TEST_F(BatchSaverTest, EventsThatCameBackJoinOnlyEventsOfTheirSession) {
  ZRCurrentBatch current(30);
  const auto append = [&](const char* name) { current.append({{"EVENT_ACTION", name}}); };
  const auto take = [&](const char* session, int time) {
    return current.take({{"session", session}, {"source", time < 6 ? "mail" : "web"}, {"request_time", time}});
  };
  const auto textOf = [](const std::list<ZRUnsavedBatch>& batches) {
    std::string text;
    for (const ZRUnsavedBatch& batch : batches) {
      for (const std::string& name : eventNames(batch.events)) text += name;
      text += '-' + batch.rest.asDictionary()->objectForKey("session").description();
      text += batch.rest.asDictionary()->objectForKey("request_time").description() + ' ';
    }
    return text;
  };
  append("a");
  auto failed = take("S", 1);
  append("b");
  current.putBack(failed);
  failed = take("S", 2);
  EXPECT_EQ(textOf(failed), "ab-S2 ");
  append("c");
  current.putBack(failed);
  failed = take("T", 3);
  EXPECT_EQ(textOf(failed), "ab-S2 c-T3 ");
  current.putBack(failed);
  failed = take("T", 4);
  EXPECT_EQ(textOf(failed), "ab-S2 c-T4 ");
  std::list<ZRUnsavedBatch> withoutSession(1);
  withoutSession.front().events = {Dictionary{{"EVENT_ACTION", "d"}}};
  current.putBack(withoutSession);
  current.putBack(failed);
  failed = take("U", 5);
  EXPECT_EQ(textOf(failed), "ab-S2 c-T4 d-U5 ");
  append("e");
  current.putBack(failed);
  failed = take("U", 6);
  EXPECT_EQ(textOf(failed), "ab-S2 c-T4 d-U5 e-U6 ") << "another source";
  current.clear();
  current.putBack(failed);
  EXPECT_TRUE(current.empty());
  EXPECT_TRUE(failed.empty());
}

TEST_F(BatchSaverTest, OptOutDropsAlsoWhatCannotBeStoredMeanwhile) {
  startWithSession();
  track({"a", "INSTALL"});
  std::filesystem::create_directory(batchPath());
  log_->onMessage = [this](const std::string& message) {
    if (message != "a not tracked as Data Tracking is opted out") return;
    log_->onMessage = nullptr;
    events().writeEventsToFileWithBatchID(Array{Dictionary{{"EVENT_ACTION", "b"}}}, "1-X");
  };
  ZRConfigDataManager::sharedInstance().setDataTrackingOptedOut(true);
  events().dropOptedOutEvents();
  settle();
  EXPECT_EQ(currentNames(), (Names{"INSTALL"}));
}

}  // namespace
}  // namespace zorvane::testing
