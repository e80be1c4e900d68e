// Posting tasks without memory: a task is posted whole or not at all.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <latch>
#include <new>
#include <string>

#include "Platform/Dispatch/Scheduler.h"

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZR_OWN_ALLOCATOR
#endif
#endif
#if !defined(ZR_OWN_ALLOCATOR)  // ThreadSanitizer has one of its own
namespace {

// How many of the next allocations of a chunk of tasks fail.
std::atomic<int> failures{0};
constexpr std::size_t kLarge = 1000;

}  // namespace

void* operator new(std::size_t size) {
  if (size >= kLarge && failures > 0 && failures-- > 0) throw std::bad_alloc();
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
// Where g++ inlines these, it takes free for the wrong counterpart of new.
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

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
