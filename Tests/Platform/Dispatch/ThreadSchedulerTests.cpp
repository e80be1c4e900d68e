// What only a scheduler over real threads can do, and how it fails.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <deque>
#include <functional>
#include <latch>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Dispatch/SchedulerFixture.h"

namespace zorvane::platform {
namespace {

TEST(ThreadScheduler, BlockedTasksDoNotStarveTheRest) {
  const auto scheduler = makeThreadScheduler(std::make_shared<SystemClock>());
  const auto blockedSerial = scheduler->makeSerialQueue("blocked");
  const auto freeSerial = scheduler->makeSerialQueue("free");
  // Each of them waits for the last task.
  std::latch release(1);
  std::atomic<int> released{0};
  const auto block = [&] {
    release.wait();
    ++released;
  };
  blockedSerial->async(block);
  for (int i = 0; i < 3; ++i) scheduler->globalQueue(Priority::Default).async(block);
  for (int i = 0; i < 8; ++i) scheduler->globalQueue(Priority::Background).async(block);
  freeSerial->async([&] { scheduler->globalQueue(Priority::Default).async([&] { release.count_down(); }); });
  scheduler->waitUntilIdle();
  EXPECT_EQ(released, 12);
}

TEST(ThreadScheduler, TasksThatMayWaitAllRun) {
  const auto scheduler = makeThreadScheduler(std::make_shared<SystemClock>());
  Queue& queue = scheduler->globalQueue(Priority::Default);
  // After short sleeps the worker looks by itself.
  for (int i = 0; i < 20; ++i) {
    std::latch done(1);
    queue.asyncSoon([&] { done.count_down(); });
    done.wait();
  }
  std::atomic<int> ran{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        queue.asyncSoon([&] { ++ran; });
        if (i % 8 == 0) scheduler->globalQueue(Priority::Background).async([&] { ++ran; });
        if (i % 64 == 0) {
          EXPECT_TRUE(scheduler->waitUntilIdle()) << "for ever";
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(scheduler->waitUntilIdle());
  EXPECT_EQ(ran, 4 * (2000 + 250));
}

TEST(ThreadScheduler, ATaskForASerialQueueComesBehindThoseOfTasksThatWait) {
  const auto scheduler = makeThreadScheduler(std::make_shared<SystemClock>());
  const auto serial = scheduler->makeSerialQueue("serial");
  Queue& queue = scheduler->globalQueue(Priority::Default);
  std::latch release(1);
  std::string order;
  queue.asyncSoon([&] { release.wait(); });
  queue.asyncSoon([&] { serial->async([&] { order += "first "; }); });
  serial->async([&] { order += "second "; });
  release.count_down();
  scheduler->waitUntilIdle();
  EXPECT_EQ(order, "first second ");
}

TEST(ThreadScheduler, TasksThatMayWaitKeepTheirPlaceAmongOthers) {
  const auto scheduler = makeThreadScheduler(std::make_shared<SystemClock>());
  Queue& queue = scheduler->globalQueue(Priority::Default);
  // All but one of the eight workers stay blocked, so one task runs at a time.
  std::latch blocked(8);
  std::latch releaseOne(1);
  std::latch releaseOthers(1);
  for (int worker = 0; worker < 8; ++worker) {
    queue.async([&, worker] {
      blocked.count_down();
      (worker == 0 ? releaseOne : releaseOthers).wait();
    });
  }
  blocked.wait();
  std::vector<int> order;
  for (const int number : {0, 3, 6}) {
    queue.asyncSoon([&, number] { order.push_back(number); });
    queue.asyncSoon([&, number] { order.push_back(number + 1); });
    queue.async([&, number] { order.push_back(number + 2); });
  }
  std::latch done(1);
  queue.async([&] { done.count_down(); });
  releaseOne.count_down();
  done.wait();
  EXPECT_EQ(order, std::vector({0, 1, 2, 3, 4, 5, 6, 7, 8}));
  releaseOthers.count_down();
  scheduler->waitUntilIdle();
}

TEST(ThreadScheduler, TasksThatMayWaitRunOneAtATime) {
  const auto scheduler = makeThreadScheduler(std::make_shared<SystemClock>());
  Queue& queue = scheduler->globalQueue(Priority::Default);
  std::latch release(1);
  std::vector<int> order;
  queue.asyncSoon([&] {
    release.wait();
    order.push_back(1);
  });
  // What stands between them keeps them apart, and runs on other threads.
  for (const int number : {2, 3, 4}) {
    queue.async([] {});
    queue.asyncSoon([&, number] { order.push_back(number); });
  }
  queue.async([&] { release.count_down(); });
  EXPECT_TRUE(scheduler->waitUntilIdle());
  EXPECT_EQ(order, std::vector({1, 2, 3, 4}));
}

TEST(ThreadScheduler, TheMainThreadRunsItsTasksWhileItWaits) {
  const auto scheduler = makeThreadScheduler(std::make_shared<SystemClock>(), {.adoptedByHost = true});
  std::latch release(1);
  scheduler->globalQueue(Priority::Default).async([&] { release.wait(); });
  EXPECT_FALSE(scheduler->waitUntilIdle(0)) << "a task is left";
  release.count_down();
  int hops = 0;
  std::function<void()> hop = [&] {
    if (++hops < 100) {
      scheduler->globalQueue(Priority::Default).async([&] { scheduler->mainQueue().async(hop); });
    }
  };
  scheduler->mainQueue().async(hop);
  EXPECT_TRUE(scheduler->waitUntilIdle());
  EXPECT_EQ(hops, 100);
  std::function<void()> again = [&] { scheduler->mainQueue().async(again); };
  again();
  EXPECT_FALSE(scheduler->waitUntilIdle(0)) << "a task that posts itself again does not hold up the wait";
  again = [] {};
  EXPECT_TRUE(scheduler->waitUntilIdle());
}

TEST(ThreadScheduler, StoppingTheMainLoopReleasesWhoWaitsForIt) {
  const auto scheduler = makeThreadScheduler(std::make_shared<SystemClock>(), {.adoptedByHost = true});
  bool ran = false;
  EXPECT_TRUE(scheduler->mainQueue().isCurrent()) << "the thread that made the scheduler, before runMainLoop()";
  scheduler->mainQueue().sync([&] { ran = true; });
  EXPECT_TRUE(std::exchange(ran, false));
  std::latch calling(1);
  scheduler->mainQueue().async([&] { ran = true; });
  std::thread waiter([&] {
    calling.count_down();
    scheduler->mainQueue().sync([&] { ran = true; });
  });
  calling.wait();
  scheduler->stopMainLoop();
  waiter.join();
  scheduler->mainQueue().async([&] { ran = true; });
  scheduler->waitUntilIdle();
  scheduler->runMainLoop();
  EXPECT_FALSE(ran);
}

TEST(ThreadScheduler, AfterAHostsLoopThrewTheNextPostRunsWhatWaits) {
  std::deque<Task> posted;
  bool isBroken = true;
  MainLoopOptions options;
  options.isMainThread = [] { return false; };
  options.postToHostLoop = [&](Task task) {
    if (isBroken) throw std::runtime_error("the loop has ended");
    posted.push_back(std::move(task));
  };
  const auto scheduler = makeThreadScheduler(std::make_shared<SystemClock>(), options);
  int reported = 0;
  scheduler->setUncaughtHandler([&reported](const std::exception_ptr&) { ++reported; });
  std::string ran;
  scheduler->mainQueue().async([&ran] { ran += "1"; });
  scheduler->mainQueue().sync([&ran] { ran += "given up"; });
  EXPECT_EQ(reported, 2);
  isBroken = false;
  for (const char* name : {"2", "3"}) scheduler->mainQueue().async([&ran, name] { ran += name; });
  for (; !posted.empty(); posted.pop_front()) posted.front()();
  EXPECT_EQ(ran, "123");
  EXPECT_TRUE(scheduler->waitUntilIdle(1));
}

TEST(ThreadScheduler, TimersFireByThemselvesWhereTheClockRuns) {
  HostLoop loop;
  for (const bool host : {false, true}) {
    const auto scheduler =
        makeThreadScheduler(std::make_shared<SystemClock>(), host ? loop.options() : MainLoopOptions());
    MainQueue& main = scheduler->mainQueue();
    std::latch fired(3);
    int count = 0;
    const TimerId timer = main.startRepeatingTimer(0.001, [&] {
      EXPECT_TRUE(main.isCurrent());
      if (++count <= 3) fired.count_down();
    });
    fired.wait();
    main.sync([&] { main.cancelTimer(timer); });
    scheduler->waitUntilIdle();
  }
}

TEST(ThreadScheduler, CanBeDestroyedWhileItsQueuesAreFull) {
  const auto held = std::make_shared<std::atomic<int>>(0);
  for (int i = 0; i < 20; ++i) {
    const auto scheduler = makeThreadScheduler(std::make_shared<SystemClock>());
    const auto serial = scheduler->makeSerialQueue("serial");
    for (int task = 0; task < 100; ++task) {
      for (Queue* queue : {serial.get(), &scheduler->globalQueue(Priority::Background),
                           static_cast<Queue*>(&scheduler->mainQueue())}) {
        queue->async([held] { ++*held; });
      }
    }
  }
  EXPECT_LE(*held, 20 * 300);
}

TEST(ThreadScheduler, AfterTheEndNobodyWaitsForTasksThatNeverRun) {
  const auto held = std::make_shared<int>(0);
  const auto scheduler = makeThreadScheduler(std::make_shared<SystemClock>());
  const auto running = scheduler->makeSerialQueue("running");
  const auto waiting = scheduler->makeSerialQueue("waiting");
  std::latch started(1);
  std::latch release(1);
  running->async([&] {
    started.count_down();
    release.wait();
  });
  started.wait();
  for (Queue* queue : {running.get(), waiting.get()}) queue->async([held] { ++*held; });
  scheduler->endThreads();
  release.count_down();
  EXPECT_TRUE(scheduler->waitUntilIdle(60));
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_EQ(*held, 0);
}

// Exit handlers and the destructors of static objects run while tasks are posted and run; they may call too.
TEST(ThreadSchedulerDeathTest, TheProcessMayExitAtAnyMoment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto exitInTheMiddle = [](bool fromTask) {
    static ThreadScheduler* scheduler = nullptr;
    std::atexit([] {
      scheduler->mainQueue().sync([] {});
      scheduler->globalQueue(Priority::Default).async([] {});
      scheduler->waitUntilIdle();
    });
    scheduler = makeThreadScheduler(std::make_shared<SystemClock>()).release();
    static Queue* const serial = scheduler->makeSerialQueue("serial").release();
    static std::latch running(100);
    for (int i = 0; i < 3; ++i) {
      std::thread([] {
        for (;;) {
          serial->async([] { running.try_wait() ? void() : running.count_down(); });
          scheduler->globalQueue(Priority::Background).async([] { scheduler->mainQueue().sync([] {}); });
          scheduler->waitUntilIdle();
        }
      }).detach();
    }
    running.wait();
    if (!fromTask) std::exit(0);
    scheduler->mainQueue().async([] { std::exit(0); });
    std::latch(1).wait();
  };
  EXPECT_EXIT(exitInTheMiddle(false), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(exitInTheMiddle(true), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace zorvane::platform
