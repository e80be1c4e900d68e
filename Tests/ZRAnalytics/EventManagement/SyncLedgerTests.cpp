#include <gtest/gtest.h>

#include "ZRAnalytics/EventManagement/ZRSyncLedger.h"

namespace zorvane::testing {
namespace {

using Ledger = ZRSyncLedger;

// A flush of these batches, whose requests are out.
ZRSyncRun startedRun(Ledger& ledger, const std::vector<std::string_view>& batchIDs, bool reset = false) {
  EXPECT_EQ(ledger.arrive({reset, nullptr}), Ledger::Arrival::Start);
  ledger.load(batchIDs);
  return {{reset, nullptr}, batchIDs.size()};
}

TEST(SyncLedgerTest, AcceptedBatchIsSettledAndRefusedOneWaits) {
  Ledger ledger;
  ZRSyncRun run = startedRun(ledger, {"1", "2", "3"});
  ledger.settle("3");  // no batch
  ledger.respond(run, "1", true);
  EXPECT_FALSE(run.isComplete());
  ledger.respond(run, "2", false);
  ledger.respond(run, "unknown", true);
  EXPECT_TRUE(run.isComplete());
  EXPECT_FALSE(run.isSuccess());
  EXPECT_FALSE(ledger.finish());
  EXPECT_EQ(ledger.end(false), Ledger::End::KeepRefused);
  EXPECT_EQ(ledger.end(true), Ledger::End::KeepAll);
  EXPECT_EQ(ledger.settled(), (Dictionary{{"1", true}, {"3", true}, {"unknown", true}}));
}

TEST(SyncLedgerTest, SettledBatchStaysSettledWhileItIsInTheFile) {
  Ledger ledger;
  ZRSyncRun run = startedRun(ledger, {"accepted", "out", "cleared"});
  ledger.respond(run, "accepted", true);
  EXPECT_EQ(ledger.arrive({}), Ledger::Arrival::Reload);
  ledger.load({"accepted", "out", "saved meanwhile"});
  EXPECT_EQ(ledger.waiting(), 2u);
  EXPECT_EQ(ledger.settled(), (Dictionary{{"accepted", true}}));

  (void)ledger.finish();
  (void)startedRun(ledger, {"accepted", "out"});
  EXPECT_EQ(ledger.settled(), (Dictionary{{"accepted", true}})) << "the file still holds it";
  ledger.abandon();
  (void)startedRun(ledger, {"new"});
  EXPECT_EQ(ledger.settled(), Dictionary{});
  EXPECT_EQ(ledger.waiting(), 1u);
}

TEST(SyncLedgerTest, ResponseOfAnAbandonedRunCountsForTheNext) {
  Ledger ledger;
  ZRSyncRun abandoned = startedRun(ledger, {"1", "2"});
  ledger.abandon();
  ZRSyncRun run = startedRun(ledger, {"1", "2"});
  ledger.respond(abandoned, "1", true);
  ledger.respond(run, "1", false);
  ledger.respond(run, "2", true);
  EXPECT_TRUE(run.isComplete());
  EXPECT_FALSE(run.isSuccess());
  EXPECT_EQ(ledger.end(false), Ledger::End::RemoveAll);
}

TEST(SyncLedgerTest, LastParkedFlushRunsOnceAfterTheSyncItWaitedFor) {
  Ledger ledger;
  for (const bool reset : {true, false}) {
    (void)startedRun(ledger, {"1"}, reset);
    EXPECT_EQ(ledger.isResetPending(), reset);
    int told = 0;
    EXPECT_EQ(ledger.arrive({true, nullptr}), Ledger::Arrival::Park);
    EXPECT_EQ(ledger.arrive({true, [&](bool, bool) { ++told; }}), Ledger::Arrival::Park);
    EXPECT_TRUE(ledger.isResetPending());
    const auto parked = ledger.finish();
    ASSERT_TRUE(parked);
    parked->completion(false, false);
    EXPECT_EQ(told, 1);
    EXPECT_FALSE(ledger.isResetPending());
    EXPECT_FALSE(ledger.finish()) << "used up";
  }
}

}  // namespace
}  // namespace zorvane::testing
