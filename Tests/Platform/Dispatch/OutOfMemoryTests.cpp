// Posting tasks without memory: a task is posted whole or not at all.
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <new>
#include <string>

#include "Platform/Dispatch/Scheduler.h"
#include "Support/ReplacedNew.h"

namespace {

// How many of the next allocations of a chunk of tasks fail.
std::atomic<int> failures{0};

}  // namespace

void zorvane::testing::allocating(std::size_t size) {
  constexpr std::size_t kChunk = 1000;
  if (size >= kChunk && failures > 0 && failures-- > 0) throw std::bad_alloc();
}

#if ZR_REPLACED_NEW
namespace zorvane::platform {
namespace {

TEST(OutOfMemory, APostThatThrowsHarmsNoLaterOne) {
  const auto scheduler = makeThreadScheduler(std::make_shared<SystemClock>());
  const auto serial = scheduler->makeSerialQueue("serial");
  std::string ran;
  for (const char* name : {"1", "2"}) {
    serial->async([&ran, name] { ran += name; });
    scheduler->waitUntilIdle();
  }
  // The queue has its chunks now. The pool needs one for the next task.
  Queue& global = scheduler->globalQueue(Priority::Default);
  std::latch blocked(8);
  std::latch release(1);
  for (int i = 0; i < 8; ++i) {
    global.async([&] {
      blocked.count_down();
      release.wait();
    });
  }
  blocked.wait();
  for (int i = 0; i < 16; ++i) global.async([] {});
  failures = 1;
  EXPECT_THROW(serial->async([&ran] { ran += "lost"; }), std::bad_alloc);
  release.count_down();
  EXPECT_TRUE(scheduler->waitUntilIdle(60));
  serial->async([&ran] { ran += "3"; });
  EXPECT_TRUE(scheduler->waitUntilIdle(60));
  EXPECT_EQ(ran, "123");
}

TEST(OutOfMemory, ATaskBehindThoseThatMayWaitIsKept) {
  const auto scheduler = makeThreadScheduler(std::make_shared<SystemClock>());
  const auto serial = scheduler->makeSerialQueue("serial");
  std::latch started(1);
  std::latch release(1);
  scheduler->globalQueue(Priority::Default).asyncSoon([&] {
    started.count_down();
    release.wait();
  });
  started.wait();
  bool hasRun = false;
  serial->async([&hasRun] { hasRun = true; });
  failures = 2;
  release.count_down();
  EXPECT_TRUE(scheduler->waitUntilIdle(60));
  EXPECT_TRUE(hasRun);
  EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace zorvane::platform
#endif
