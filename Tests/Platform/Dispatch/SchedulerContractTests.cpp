// What every scheduler promises.
#include <gmock/gmock.h>

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Dispatch/SchedulerFixture.h"

namespace zorvane::platform {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

struct Kind {
  const char* name;
  std::unique_ptr<SchedulerFixture> (*make)();
  // How many threads may post at once.
  int posters = 8;
};

template <typename T>
std::unique_ptr<SchedulerFixture> make() {
  return std::make_unique<T>();
}

class SchedulerContract : public testing::TestWithParam<Kind> {
 protected:
  std::unique_ptr<SchedulerFixture> fixture_ = GetParam().make();
  Scheduler& scheduler_ = fixture_->scheduler();
  MainQueue& main_ = scheduler_.mainQueue();
  Queue& default_ = scheduler_.globalQueue(Priority::Default);
  Queue& background_ = scheduler_.globalQueue(Priority::Background);
  std::unique_ptr<Queue> serial_ = scheduler_.makeSerialQueue("serial");
};

TEST_P(SchedulerContract, LosesReordersAndOverlapsNothing) {
  constexpr int kRounds = 500;
  struct Lane {
    Queue* queue;
    std::atomic<bool> busy{false};
    int next[8]{};
    int wrong = 0;
    void note(int thread, int round) {
      wrong += busy.exchange(true) || next[thread]++ != round;
      busy = false;
    }
  };
  const auto other = scheduler_.makeSerialQueue("other");
  Lane lanes[]{{serial_.get()}, {other.get()}, {&main_}};
  std::atomic<int> concurrent{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < GetParam().posters; ++thread) {
    threads.emplace_back([&, thread] {
      for (int round = 0; round < kRounds; ++round) {
        for (Lane& lane : lanes) lane.queue->async([&lane, thread, round] { lane.note(thread, round); });
        (round % 2 ? default_ : background_).async([&] { ++concurrent; });
        if (round % 100 == 0) main_.sync([&] { ++concurrent; });
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  scheduler_.waitUntilIdle();
  for (const Lane& lane : lanes) {
    EXPECT_EQ(lane.wrong, 0);
    for (int thread = 0; thread < GetParam().posters; ++thread) EXPECT_EQ(lane.next[thread], kRounds);
  }
  EXPECT_EQ(concurrent, GetParam().posters * (kRounds + kRounds / 100));
}

TEST_P(SchedulerContract, ATaskKnowsItsQueue) {
  const std::vector<Queue*> queues{serial_.get(), &default_, &background_, &main_};
  std::atomic<int> wrong{0};
  for (Queue* posted : queues) {
    posted->async([&, posted] {
      for (Queue* asked : queues) wrong += asked->isCurrent() != (asked == posted);
      posted->assertCurrent();
    });
  }
  scheduler_.waitUntilIdle();
  EXPECT_EQ(wrong, 0);
  EXPECT_FALSE(serial_->isCurrent());
}

TEST_P(SchedulerContract, SyncRunsOnTheMainThreadWithinTheCallersTask) {
  int uncaught = 0;
  scheduler_.setUncaughtHandler([&](std::exception_ptr) { ++uncaught; });
  std::vector<std::string> story;
  serial_->async([&] {
    story.push_back("before");
    main_.sync([&] {
      EXPECT_TRUE(main_.isCurrent());
      EXPECT_FALSE(serial_->isCurrent());
      main_.sync([&] { story.push_back("inline"); });
      story.push_back("on main");
    });
    EXPECT_TRUE(serial_->isCurrent());
    try {
      main_.sync([] { throw std::runtime_error("an error of main"); });
    } catch (const std::runtime_error& error) {
      story.push_back(error.what());
    }
  });
  scheduler_.waitUntilIdle();
  EXPECT_THAT(story, ElementsAre("before", "inline", "on main", "an error of main"));
  EXPECT_EQ(uncaught, 0);
}

TEST_P(SchedulerContract, AThrowingTaskEndsAlone) {
  std::mutex mutex;
  std::vector<std::string> uncaught;
  std::atomic<int> ran{0};
  scheduler_.setUncaughtHandler([&](std::exception_ptr exception) {
    try {
      std::rethrow_exception(exception);
    } catch (const std::exception& error) {
      std::lock_guard lock(mutex);
      uncaught.push_back(error.what());
    }
    throw std::runtime_error("dropped");
  });
  const std::pair<Queue*, const char*> queues[]{{serial_.get(), "serial"}, {&default_, "default"}, {&main_, "main"}};
  for (const auto& [queue, name] : queues) {
    queue->async([what = name] { throw std::runtime_error(what); });
    queue->async([&] { ++ran; });
  }
  scheduler_.waitUntilIdle();
  EXPECT_EQ(ran, 3);
  EXPECT_THAT(uncaught, UnorderedElementsAre("serial", "default", "main"));
}

TEST_P(SchedulerContract, IdleMeansThatWhatTasksPostedIsDoneToo) {
  int hops = 0;  // Each hop posts the next.
  std::function<void()> hop = [&] {
    if (++hops == 200) return;
    Queue* const queues[]{serial_.get(), &main_, &default_, &background_};
    queues[hops % 4]->async([&] { hop(); });
  };
  serial_->async([&] { hop(); });
  scheduler_.waitUntilIdle();
  EXPECT_EQ(hops, 200);
}

TEST_P(SchedulerContract, TasksOutliveTheirSerialQueueAndReleaseWhatTheyHold) {
  const auto held = std::make_shared<int>(0);
  for (int i = 0; i < 10; ++i) serial_->async([held] { ++*held; });
  serial_.reset();
  scheduler_.waitUntilIdle();
  EXPECT_EQ(*held, 10);
  EXPECT_EQ(held.use_count(), 1);
}

TEST_P(SchedulerContract, TimersKeepTheirRhythm) {
  std::vector<std::string> fired;
  const auto note = [&](std::string name) {
    EXPECT_TRUE(main_.isCurrent());
    serial_->async([&fired, name, clock = fixture_->clock] {
      fired.push_back(name + std::to_string(static_cast<int>(clock->monotonicSeconds())));
    });
  };
  EXPECT_LT(scheduler_.nextTimerDeadline(), 0);
  const TimerId ten = main_.startRepeatingTimer(10, [&] { note("ten "); });
  main_.startRepeatingTimer(25, [&] {
    note("twenty-five ");
    throw std::runtime_error("the timer goes on");
  });
  EXPECT_GT(ten, 0U);
  EXPECT_EQ(scheduler_.nextTimerDeadline(), 10);
  fixture_->advance(9.5);
  EXPECT_THAT(fired, ElementsAre());
  fixture_->advance(20.5);
  EXPECT_THAT(fired, ElementsAre("ten 10", "ten 20", "twenty-five 25", "ten 30"));

  fired.clear();
  fixture_->clock->advance(35);  // Nobody fires at 40, 50 and 60.
  scheduler_.fireDueTimers();
  scheduler_.waitUntilIdle();
  EXPECT_THAT(fired, ElementsAre("ten 65", "twenty-five 65"));
  EXPECT_EQ(scheduler_.nextTimerDeadline(), 70);

  fired.clear();
  fixture_->clock->setNow(Date{0});
  scheduler_.fireDueTimers();
  scheduler_.waitUntilIdle();
  EXPECT_THAT(fired, ElementsAre()) << "timers follow the monotonic clock";
}

TEST_P(SchedulerContract, FractionsAddUpToTheirSum) {
  int fired = 0;
  main_.startRepeatingTimer(0.1, [&] { ++fired; });
  for (int i = 0; i < 10; ++i) fixture_->advance(0.1);
  fixture_->advance(1);
  EXPECT_EQ(fired, 20);
}

TEST_P(SchedulerContract, ACancelledTimerFiresNoMore) {
  int own = 0;
  int others = 0;
  TimerId first = 0;
  TimerId second = 0;
  const auto held = std::make_shared<int>(0);
  main_.sync([&] {
    first = main_.startRepeatingTimer(1, [&, held] {
      ++own;
      main_.cancelTimer(first);
      main_.cancelTimer(second);
      main_.cancelTimer(first + second + 1);
    });
    second = main_.startRepeatingTimer(1, [&] { ++others; });
  });
  fixture_->advance(5);
  EXPECT_EQ(own, 1);
  EXPECT_EQ(others, 0);
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_LT(scheduler_.nextTimerDeadline(), 0);
}

TEST(Queue, AssertCurrentAbortsOffTheQueue) {
  ManualScheduler scheduler(std::make_shared<ManualClock>(Date{}));
  const auto serial = scheduler.makeSerialQueue("reports");
  EXPECT_DEATH(serial->assertCurrent(), "queue \"reports\"");
}

INSTANTIATE_TEST_SUITE_P(Schedulers, SchedulerContract,
                         testing::Values(Kind{"OwnMainThread", make<OwnThreadFixture>},
                                         Kind{"AdoptedMainThread", make<AdoptedFixture>},
                                         Kind{"HostLoop", make<HostLoopFixture>},
                                         Kind{"Manual", make<ManualFixture>, 1}),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
}  // namespace zorvane::platform
