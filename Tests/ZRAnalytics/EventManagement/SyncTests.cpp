#include <new>
#include <stdexcept>

#include "Platform/Formats/PropertyList.h"
#include "ZRAnalytics/EventManagement/EventPipelineTest.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/ZRCoreConstants.h"

namespace zorvane::testing {
namespace {

constexpr char kAllSynced[] = "All the tracked events are already synced with Zorvane :]";
constexpr char kSyncedAll[] = "sync performed for all the batches successfully";
constexpr char kInitiated[] = "Report Add request initiated:";

// Queues that have no memory for one task when told so.
class FailingScheduler final : public platform::Scheduler {
 public:
  explicit FailingScheduler(std::shared_ptr<platform::Scheduler> inner) : inner_(std::move(inner)) {}
  std::unique_ptr<platform::Queue> makeSerialQueue(std::string label) override {
    return std::make_unique<FailingQueue>(inner_->makeSerialQueue(std::move(label)), failsNext);
  }
  platform::Queue& globalQueue(platform::Priority priority) override { return inner_->globalQueue(priority); }
  platform::MainQueue& mainQueue() override { return inner_->mainQueue(); }
  bool waitUntilIdle(double seconds) override { return inner_->waitUntilIdle(seconds); }
  double nextTimerDeadline() override { return inner_->nextTimerDeadline(); }
  void fireDueTimers() override { inner_->fireDueTimers(); }
  void setUncaughtHandler(std::function<void(std::exception_ptr)> handler) override {
    inner_->setUncaughtHandler(std::move(handler));
  }

  bool failsNext = false;

 private:
  struct FailingQueue final : platform::Queue {
    FailingQueue(std::unique_ptr<platform::Queue> theInner, bool& theFailsNext)
        : inner(std::move(theInner)), failsNext(theFailsNext) {}
    void async(platform::Task task) override {
      if (std::exchange(failsNext, false)) throw std::bad_alloc();
      inner->async(std::move(task));
    }
    bool isCurrent() const override { return inner->isCurrent(); }

    const std::unique_ptr<platform::Queue> inner;
    bool& failsNext;
  };

  const std::shared_ptr<platform::Scheduler> inner_;
};

class SyncTest : public EventPipelineTest {
 protected:
  // Everything that was logged or told since this call, in order.
  void recordOrder() {
    log_->onMessage = [this](const std::string& message) { order_.push_back(message); };
    center_->addObserver(kNotificationNameUserReset, [this](std::string_view) { order_.push_back("reset"); });
  }
  ZREventsHandler::FlushCompletion noting(const std::string& name) {
    return [this, name](bool success, bool attempted) {
      order_.push_back(name + (success ? " yes" : " no") + (attempted ? " yes" : " no"));
    };
  }
  void noteFlush(const std::string& name, bool reset) {
    events().flushEventsInBackgroundAndResetWithCompletionBlock(false, reset, noting(name));
  }
  void answer(int status) {
    service_->answerNext(status);
    settle();
  }
  // Refuses batches that hold the event.
  void refuse(const std::string& name) {
    service_->decide = [name](const FakeService::Request& request) {
      return eventNames(*request.body.asDictionary()->objectForKey("viewsInfo").asArray()).front() == name ? 500 : 200;
    };
  }

  Names order_;
};

TEST_F(SyncTest, ALostResponseDoesNotEndAllSyncing) {
  const auto failing = std::make_shared<FailingScheduler>(scheduler_);
  host_.scheduler = failing;
  startWithSession();
  save({"a"});
  save({"b"});
  service_->hold = true;
  noteFlush("first", false);
  settle();
  answer(200);
  failing->failsNext = true;
  answer(200);
  EXPECT_EQ(order_, Names{});
  // The batch of the lost response counts as refused.
  noteFlush("second", false);
  settle();
  EXPECT_EQ(order_, Names{"first no yes"});
  answer(200);
  EXPECT_EQ(order_, (Names{"first no yes", "second yes yes"}));
  EXPECT_TRUE(batchFile().empty());
}

TEST_F(SyncTest, FailedBatchStaysAndGoesWithTheNextFlush) {
  startWithSession();
  save({"a"});
  save({"b"});
  save({"c"});
  const std::string failed = idOf(1);
  refuse("b");
  Answers answers;
  flush(answers);
  settle();
  EXPECT_EQ(answers, (Answers{{false, true}}));
  EXPECT_EQ(savedNames(), (Batches{{"b"}}));
  EXPECT_TRUE(log_->has("could not complete sync for batch " + failed + ", will try again later"));
  EXPECT_EQ(log_->count(kInitiated), 3u);

  service_->decide = [](const auto&) { return 204; };
  flush(answers);
  settle();
  EXPECT_EQ(answers.back(), (std::pair{true, true}));
  EXPECT_EQ(sentNames(), (Batches{{"a"}, {"b"}, {"c"}, {"b"}}));
  EXPECT_TRUE(log_->has("sync success from batch " + failed));
  EXPECT_TRUE(log_->has(kSyncedAll));
  EXPECT_TRUE(log_->has("Batch Events plist deleted"));
  EXPECT_FALSE(std::filesystem::exists(batchPath()));
}

TEST_F(SyncTest, OldestBatchIsSentFirstByTheNumberInFrontOfItsIdentifier) {
  startWithSession();
  Dictionary file;
  for (const char* key : {"10-A", "9-Z", "x", "1795255200000-B", "9-A"}) {
    file.set(key, Dictionary{{"events", Array{Dictionary{{"EVENT_ACTION", key}}}}, {"batch_id", key}});
  }
  writeAll(batchPath(), platform::binaryPropertyList(file));
  service_->hold = true;
  Answers answers;
  flush(answers);
  settle();
  EXPECT_EQ(sentNames(), (Batches{{"x"}, {"9-Z"}, {"9-A"}, {"10-A"}, {"1795255200000-B"}}));
  EXPECT_EQ(service_->heldCount(), 5u) << "none waits for another's answer";
  EXPECT_TRUE(answers.empty());
}

TEST_F(SyncTest, CompletionTellsWhyNothingWasSent) {
  startWithSession();
  save({"a"});
  Answers answers;
  for (const char* gate : {"account_active", "sdk_enabled"}) {
    updateRemoteConfiguration({{gate, false}});
    flush(answers);
    EXPECT_EQ(answers.size(), 1u) << "at once, on this thread: " << gate;
    EXPECT_EQ(answers, (Answers{{false, false}}));
    answers.clear();
    updateRemoteConfiguration({{gate, true}});
  }
  EXPECT_EQ(log_->count("Reports API Blocked"), 2u);

  setAppIdentifier("");
  flush(answers);
  EXPECT_TRUE(answers.empty()) << "on the queue";
  settle();
  EXPECT_TRUE(log_->has("Reports API not called. AppID not present"));
  setAppIdentifier("APP");
  std::filesystem::remove(batchPath());
  flush(answers);
  settle();
  EXPECT_EQ(answers, (Answers{{false, false}, {true, false}}));
  EXPECT_TRUE(log_->has(kAllSynced));
  EXPECT_TRUE(service_->requests().empty());
}

TEST_F(SyncTest, BatchSavedWhileASyncRunsSurvivesItsEnd) {
  startWithSession();
  service_->hold = true;
  save({"a"});
  save({"b"});
  Answers answers;
  flush(answers);
  settle();
  save({"saved meanwhile"});
  answer(200);
  answer(500);
  EXPECT_EQ(answers, (Answers{{false, true}}));
  EXPECT_EQ(savedNames(), (Batches{{"b"}, {"saved meanwhile"}}));

  flush(answers);
  settle();
  save({"saved later"});
  answer(200);
  answer(200);
  EXPECT_EQ(answers.back(), (std::pair{true, true}));
  EXPECT_EQ(savedNames(), (Batches{{"saved later"}}));
}

TEST_F(SyncTest, FlushDuringASyncIsAnsweredAtOnceAndReadsTheFileAgain) {
  startWithSession();
  service_->hold = true;
  save({"a"});
  save({"b"});
  Answers first;
  flush(first);
  settle();
  answer(200);
  save({"c"});
  Answers second;
  flush(second);
  settle();
  EXPECT_EQ(second, (Answers{{false, false}}));
  EXPECT_EQ(service_->requests().size(), 2u);
  answer(200);
  EXPECT_EQ(first, (Answers{{true, true}}));
  EXPECT_EQ(savedNames(), (Batches{{"c"}})) << "neither was accepted for nothing";
  EXPECT_EQ(second.size(), 1u) << "it does not queue";
}

// --- Reset

TEST_F(SyncTest, ResetTellsEverybodyAfterTheAnswersAndBeforeItsCompletion) {
  startWithSession();
  save({"a"});
  const std::string id = idOf(0);
  recordOrder();
  noteFlush("reset flush", true);
  settle();
  EXPECT_EQ(order_, (Names{kInitiated, "sync success from batch " + id, "reset", kSyncedAll,
                           "Batch Events plist deleted", "reset flush yes yes"}));
  order_.clear();
  noteFlush("reset flush", true);
  settle();
  EXPECT_EQ(order_, (Names{kAllSynced, "reset", "reset flush yes no"}));
}

TEST_F(SyncTest, ResetWithARefusedBatchLeavesTheFileAsItWas) {
  startWithSession();
  save({"a"});
  save({"b"});
  const std::string before = readAll(batchPath());
  const std::string a = idOf(0);
  const std::string b = idOf(1);
  refuse("b");
  recordOrder();
  noteFlush("reset flush", true);
  settle();
  EXPECT_EQ(order_, (Names{kInitiated, kInitiated, "sync success from batch " + a,
                           "could not complete sync for batch " + b + ", will try again later", "reset",
                           "sync unsuccessful on reset", "reset flush no yes"}));
  EXPECT_EQ(readAll(batchPath()), before);
  service_->decide = [](const auto&) { return 200; };
  noteFlush("flush", false);
  settle();
  EXPECT_EQ(sentNames(), (Batches{{"a"}, {"b"}, {"b"}})) << "only what was refused";
  EXPECT_FALSE(std::filesystem::exists(batchPath()));
}

TEST_F(SyncTest, ResetDuringASyncRunsAtItsEndAndCompletesTwice) {
  startWithSession();
  service_->hold = true;
  save({"a"});
  const std::string id = idOf(0);
  noteFlush("flush", false);
  settle();
  recordOrder();
  noteFlush("first reset", true);
  noteFlush("second reset", true);
  settle();
  EXPECT_EQ(order_, (Names{"first reset no no", "second reset no no"}));

  order_.clear();
  answer(200);
  EXPECT_EQ(order_, (Names{"sync success from batch " + id, kAllSynced, "reset", "second reset yes no", kSyncedAll,
                           "Batch Events plist deleted", "flush yes yes"}));
  EXPECT_FALSE(std::filesystem::exists(batchPath()));
  EXPECT_EQ(sentNames(), (Batches{{"a"}}));

  save({"b"});
  const std::string next = idOf(0);
  order_.clear();
  noteFlush("flush", false);
  settle();
  answer(200);
  EXPECT_EQ(order_, (Names{kInitiated, "sync success from batch " + next, kSyncedAll, "Batch Events plist deleted",
                           "flush yes yes"}))
      << "the parked call is used up";
}

TEST_F(SyncTest, BatchThatAParkedResetWasRefusedStays) {
  startWithSession();
  service_->hold = true;
  save({"a"});
  noteFlush("flush", false);
  settle();
  noteFlush("reset flush", true);
  settle();
  answer(503);
  order_.clear();
  recordOrder();
  answer(503);
  EXPECT_EQ(order_.back(), "reset flush no yes");
  EXPECT_TRUE(log_->has("sync unsuccessful on reset"));
  EXPECT_EQ(savedNames(), (Batches{{"a"}}));
}

// --- Failures

TEST_F(SyncTest, SyncStopsForGoodWhenTheIdentifierVanishesOnTheWay) {
  startWithSession();
  save({"a"});
  save({"b"});
  save({"c"});
  recordOrder();
  log_->onMessage = [this](const std::string& message) {
    order_.push_back(message);
    if (log_->count(kInitiated) == 2) setAppIdentifier("");
  };
  noteFlush("flush", false);
  settle();
  EXPECT_EQ(sentNames(), (Batches{{"a"}}));
  EXPECT_EQ(order_, (Names{kInitiated, kInitiated, "Sync Failure\u203C\uFE0F",
                           "Please initialze the SDK Config with the AppID in applicationDidFinishLaunching",
                           "sync success from batch " + idOf(0)}));
  log_->onMessage = nullptr;
  setAppIdentifier("APP");
  order_.clear();
  noteFlush("flush", false);
  settle();
  EXPECT_EQ(order_, (Names{"flush no no"}));
  EXPECT_EQ(service_->requests().size(), 1u);
  EXPECT_EQ(savedNames(), (Batches{{"a"}, {"b"}, {"c"}})) << "for the next launch";
}

TEST_F(SyncTest, ExceptionWhileSendingEndsTheSyncAndKeepsTheBatches) {
  startWithSession();
  save({"a"});
  service_->decide = [](const auto&) -> int { throw std::runtime_error("no radio"); };
  int resets = 0;
  center_->addObserver(kNotificationNameUserReset, [&](std::string_view) { ++resets; });
  Answers answers;
  flush(answers);
  settle();
  EXPECT_EQ(answers, (Answers{{false, true}}));
  const std::string operation = "synchronousFlushInBackgroundAndResetWithCompletionBlock";
  EXPECT_TRUE(hasError(operation, 538, "Exception while syncing : no radio"));
  EXPECT_EQ(resets, 0);
  flush(answers, true);
  settle();
  EXPECT_EQ(answers.back(), (std::pair{false, true}));
  EXPECT_EQ(resets, 1);
  EXPECT_TRUE(log_->has("sync unsuccessful on reset"));
  EXPECT_EQ(savedNames(), (Batches{{"a"}}));

  service_->decide = [](const auto&) { return 200; };
  flush(answers);
  settle();
  EXPECT_EQ(answers.back(), (std::pair{true, true}));
  EXPECT_FALSE(std::filesystem::exists(batchPath()));
}

TEST_F(SyncTest, ExceptionOfACompletionIsReportedUnderItsOperation) {
  startWithSession();
  const auto refuse = [](auto...) { throw std::runtime_error("completion"); };
  save({"a"});
  events().flushEventsInBackgroundAndResetWithCompletionBlock(false, true, refuse);
  events().flushWithCompletionBlock(refuse);
  events().trackEventWithPropertiesWithCompletionBlock("a", nullptr, refuse);
  settle();
  EXPECT_EQ(log_->errors().size(), 3u);
  EXPECT_TRUE(
      hasError("flushEventsInBackgroundAndResetWithCompletionBlock", 411, "Exception while syncing : completion"));
  EXPECT_TRUE(hasError("flushWithCompletionBlock", 325, "exception in flush completion"));
}

// --- The timer

class FlushTimerTest : public SyncTest {
 protected:
  void startWithTimer(const Dictionary& configuration) {
    start(configuration);
    events();
    settle();
  }
  std::size_t flushesDuring(double seconds) {
    log_->clear();
    scheduler_->advance(seconds);
    return log_->count("Periodic Flush Initiated");
  }
};

TEST_F(FlushTimerTest, CurrentBatchIsSentAtEachInterval) {
  startWithTimer({{"periodic_flush_duration", 20}});
  EXPECT_TRUE(log_->has("Flush Timer Started"));
  updateRemoteConfiguration({{"periodic_flush_duration", 500}});
  settle();
  auto silent = std::make_shared<ZRProperties>();
  silent->setNonInteractive();
  events().trackEventWithProperties("a", silent);
  settle();
  EXPECT_EQ(flushesDuring(19), 0u);
  EXPECT_EQ(flushesDuring(1), 1u);
  EXPECT_EQ(sentNames(), (Batches{{"a"}}));
  EXPECT_EQ(flushesDuring(60), 3u);
}

TEST_F(FlushTimerTest, NoTimerWhenSwitchedOffOrBelowASecond) {
  const struct {
    Dictionary configuration;
    Names log;
  } cases[] = {
      {{{"periodic_flush_enabled", false}}, {"Flush Timer Disabled"}},
      {{{"sdk_enabled", false}}, {"Flush Timer Disabled"}},
      {{{"periodic_flush_duration", 0}}, {}},
      {{{"periodic_flush_duration", -5}}, {}},
      {{{"periodic_flush_duration", 1}}, {"Flush Timer Started"}},
  };
  for (const auto& item : cases) {
    inEarlierLaunch([&] {
      startWithTimer(item.configuration);
      EXPECT_EQ(log_->messages(), item.log) << Value(item.configuration).description();
      EXPECT_EQ(flushesDuring(300) > 0, item.log == Names{"Flush Timer Started"});
    });
  }
}

TEST_F(FlushTimerTest, TimerRestsInTheBackground) {
  startWithTimer({{"periodic_flush_duration", 10}});
  log_->clear();
  center_->post(platform::kDidEnterBackgroundNotification);
  center_->post(platform::kDidEnterBackgroundNotification);
  EXPECT_EQ(log_->messages(), (Names{"Flush Timer Stopped"}));
  EXPECT_EQ(flushesDuring(100), 0u);
  center_->post(platform::kWillEnterForegroundNotification);
  EXPECT_TRUE(log_->has("Flush Timer Started"));
  EXPECT_EQ(flushesDuring(100), 10u);
}

TEST_F(FlushTimerTest, IntervalChangesOnlyAboveTheMinimumAndOnlyWhenItIsAnother) {
  startWithTimer({{"periodic_flush_duration", 10}, {"minimum_periodic_flush_duration", 5}});
  log_->clear();
  for (const std::int64_t ignored : {-1, 0, 5, 10}) events().setFlushInterval(ignored);
  updateRemoteConfiguration({{"minimum_periodic_flush_duration", 0}});
  events().setFlushInterval(30);
  settle();
  EXPECT_TRUE(log_->messages().empty());
  EXPECT_EQ(flushesDuring(60), 6u);

  updateRemoteConfiguration({{"minimum_periodic_flush_duration", 5}});
  log_->clear();
  events().setFlushInterval(6);
  settle();
  EXPECT_EQ(log_->messages(), (Names{"Flush Timer Stopped", "Flush Timer Started"}));
  EXPECT_EQ(flushesDuring(60), 10u);
}

TEST_F(FlushTimerTest, EveryTimerThatWasStartedIsStopped) {
  start({{"periodic_flush_duration", 10}, {"minimum_periodic_flush_duration", 1}});
  events().setFlushInterval(2);  // before the first timer has started
  settle();
  events().initiateTimer();
  EXPECT_EQ(flushesDuring(20), 20u) << "a start leaves an older timer alone";
  events().stopPeriodicSyncTimer();
  EXPECT_TRUE(log_->has("Flush Timer Stopped"));
  EXPECT_EQ(flushesDuring(60), 0u);
}

TEST_F(FlushTimerTest, DisablingStopsTheTimerForThisLaunchAndTheNext) {
  inEarlierLaunch([&] {
    startWithTimer({});
    events().disablePeriodicFlush();
    EXPECT_TRUE(log_->has("Flush Timer Stopped"));
    EXPECT_EQ(flushesDuring(600), 0u);
    center_->post(platform::kWillEnterForegroundNotification);
    EXPECT_TRUE(log_->has("Flush Timer Disabled"));
  });
  startWithTimer({});
  EXPECT_EQ(log_->messages(), (Names{"Flush Timer Disabled"}));
}

}  // namespace
}  // namespace zorvane::testing
