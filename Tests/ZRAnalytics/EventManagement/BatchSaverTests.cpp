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
  settle();
}

TEST_F(BatchSaverTest, EventsThatCameBackJoinOnlyEventsOfTheirSession) {
  ZRCurrentBatch current(30);
  std::list<ZRUnsavedBatch> failed;
  // What is taken after the failed batches came back and an event, unless it is "", was recorded.
  const auto taken = [&](const char* event, const char* session, const char* source, int time) {
    if (*event) current.append({{"EVENT_ACTION", event}});
    current.putBack(failed);
    failed = current.take({{"session", session}, {"source", source}, {"request_time", time}});
    std::string text;
    for (const ZRUnsavedBatch& batch : failed) {
      for (const std::string& name : eventNames(batch.events)) text += name;
      text += '-' + batch.rest.asDictionary()->objectForKey("session").description();
      text += batch.rest.asDictionary()->objectForKey("request_time").description() + ' ';
    }
    return text;
  };
  EXPECT_EQ(taken("a", "S", "mail", 1), "a-S1 ");
  EXPECT_EQ(taken("b", "S", "mail", 2), "ab-S2 ");
  EXPECT_EQ(taken("c", "T", "mail", 3), "ab-S2 c-T3 ");
  EXPECT_EQ(taken("d", "T", "web", 4), "ab-S2 c-T3 d-T4 ");
  EXPECT_EQ(taken("", "T", "web", 5), "ab-S2 c-T3 d-T5 ");
  std::list<ZRUnsavedBatch> withoutSession(1);
  withoutSession.front().events = {Dictionary{{"EVENT_ACTION", "e"}}};
  current.putBack(failed);
  current.putBack(withoutSession);
  EXPECT_EQ(taken("f", "T", "web", 6), "eab-S2 c-T3 df-T6 ");
  EXPECT_EQ(taken("", "U", "web", 7), "eab-S2 c-T3 df-T6 ");
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
