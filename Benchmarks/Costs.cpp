// What scripts/check-costs counts: four steps of an event's road. Callgrind counts the instructions, and writes one
// profile a step, named after it. This program counts the allocations and prints for each step:
//   STEP EVENTS ALLOCATIONS
// Under --separate-threads=yes the step "caller" holds what the thread does that tracks; else the profiles hold what
// all threads do, and "caller" includes "queue".
#include <valgrind/callgrind.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "Counters.h"
#include "Platform/HostServices.h"
#include "Workload.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/ZRAnalytics.h"

namespace {

using namespace zorvane;
using namespace zorvane::bench;

constexpr int kTracked = 2000;
constexpr int kAlone = 500;
constexpr int kBatches = 20;
constexpr int kBatchSize = 30;
constexpr int kSaved = kBatches * kBatchSize;

// Stands still between steps of a millisecond, so that counts do not depend on how many events share one.
class SteppedClock final : public platform::Clock {
 public:
  platform::Date now() const override { return {1.8e9 + 1e-3 * steps_}; }
  double monotonicSeconds() const override { return machine_.monotonicSeconds(); }
  void step() { ++steps_; }

 private:
  const platform::SystemClock machine_{};
  std::atomic<int> steps_{0};
};

void waitUntilIdle() {
  platform::hostServices().scheduler->waitUntilIdle();
}

void track(int events) {
  for (int i = 0; i < events; ++i) {
    ZRAnalytics::sharedInstance().trackEventWithProperties("Product viewed", sixAttributes(i));
  }
}

void print(const char* step, int events, std::int64_t allocations) {
  std::printf("%s %d %lld\n", step, events, static_cast<long long>(allocations));
}

}  // namespace

int main() {
  const auto clock = std::make_shared<SteppedClock>();
  startModule({.folder = workFolder(), .transport = makeTransport(true), .batchSize = 1'000'000, .clock = clock});
  ZREventsHandler& handler = ZREventsHandler::sharedInstance();
  track(kBatchSize);
  waitUntilIdle();
  handler.clearEventsdata();

  CALLGRIND_DUMP_STATS_AT("start");
  std::int64_t before = allocations();
  const std::int64_t beforeOwn = allocationsOfThread();
  track(kTracked);
  waitUntilIdle();
  const std::int64_t caller = allocationsOfThread() - beforeOwn;
  const std::int64_t queue = allocations() - before - caller;
  CALLGRIND_DUMP_STATS_AT("caller");
  print("caller", kTracked, caller);
  print("queue", kTracked, queue);
  handler.clearEventsdata();

  CALLGRIND_DUMP_STATS_AT("pause");
  before = allocations();
  for (int i = 0; i < kAlone; ++i) {
    clock->step();
    track(1);
    waitUntilIdle();
  }
  const std::int64_t alone = allocations() - before;
  CALLGRIND_DUMP_STATS_AT("alone");
  print("alone", kAlone, alone);
  handler.clearEventsdata();

  std::int64_t save = 0;
  for (int i = 0; i < kBatches; ++i) {
    track(kBatchSize);
    waitUntilIdle();
    CALLGRIND_DUMP_STATS_AT("pause");
    before = allocations();
    handler.saveCurrentBatch();
    save += allocations() - before;
    CALLGRIND_DUMP_STATS_AT("save");
  }
  print("save", kSaved, save);

  before = allocations();
  handler.flushWithCompletionBlock(nullptr);
  waitUntilIdle();
  const std::int64_t sync = allocations() - before;
  CALLGRIND_DUMP_STATS_AT("sync");
  print("sync", kSaved, sync);
  const bool isAllAccepted = handler.getBatches()->empty();
  removeWorkFolder();
  return isAllAccepted ? 0 : 1;
}
