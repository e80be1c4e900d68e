// What every scheduler promises.
#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>
#include <vector>

#include "Dispatch/SchedulerFixture.h"

namespace zorvane::platform {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

struct Kind {
  const char* name;
  std::unique_ptr<World> (*make)();
};

template <typename T>
std::unique_ptr<World> make() {
  return std::make_unique<T>();
}

class SchedulerContract : public testing::TestWithParam<Kind> {
 protected:
  std::unique_ptr<World> world_ = GetParam().make();
  Scheduler& scheduler_ = world_->scheduler();
  MainQueue& main_ = scheduler_.mainQueue();
  Queue& default_ = scheduler_.globalQueue(Priority::Default);
  Queue& background_ = scheduler_.globalQueue(Priority::Background);
  std::unique_ptr<Queue> serial_ = scheduler_.makeSerialQueue("serial");
};

TEST_P(SchedulerContract, SerialQueuesRunInOrderOneTaskAtATime) {
  constexpr int kTasks = 500;
  const auto other = scheduler_.makeSerialQueue("other");
  struct Lane {
    Queue* queue;
    std::vector<int> order{};
    std::atomic<bool> busy{false};
    int overlaps = 0;
  };
  Lane lanes[3]{{serial_.get()}, {other.get()}, {&main_}};
  for (int i = 0; i < kTasks; ++i) {
    for (Lane& lane : lanes) {
      lane.queue->async([&lane, i] {
        if (lane.busy.exchange(true)) ++lane.overlaps;
        lane.order.push_back(i);
        lane.busy = false;
      });
    }
  }
  scheduler_.waitUntilIdle();
  std::vector<int> expected;
  for (int i = 0; i < kTasks; ++i) expected.push_back(i);
  for (const Lane& lane : lanes) {
    EXPECT_EQ(lane.order, expected);
    EXPECT_EQ(lane.overlaps, 0);
  }
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
    story.push_back("after");
  });
  scheduler_.waitUntilIdle();
  EXPECT_THAT(story, ElementsAre("before", "inline", "on main", "after"));
}

TEST_P(SchedulerContract, AnExceptionOfSyncReachesTheCallerOnly) {
  int uncaught = 0;
  scheduler_.setUncaughtHandler([&](std::exception_ptr) { ++uncaught; });
  std::string caught;
  serial_->async([&] {
    try {
      main_.sync([] { throw std::runtime_error("from main"); });
    } catch (const std::runtime_error& error) {
      caught = error.what();
    }
  });
  scheduler_.waitUntilIdle();
  EXPECT_EQ(caught, "from main");
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
    throw std::runtime_error("a handler that throws harms nobody");
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
  int hops = 0;  // Each hop follows from the one before.
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
    fired.push_back(name + std::to_string(static_cast<int>(world_->clock->monotonicSeconds())));
  };
  EXPECT_LT(scheduler_.nextTimerDeadline(), 0);
  const TimerId ten = main_.startRepeatingTimer(10, [&] { note("ten "); });
  main_.startRepeatingTimer(25, [&] {
    note("twenty-five ");
    throw std::runtime_error("the timer goes on");
  });
  EXPECT_GT(ten, 0U);
  EXPECT_EQ(scheduler_.nextTimerDeadline(), 10);
  world_->advance(9.5);
  EXPECT_THAT(fired, ElementsAre());
  world_->advance(20.5);
  EXPECT_THAT(fired, ElementsAre("ten 10", "ten 20", "twenty-five 25", "ten 30"));

  fired.clear();
  world_->clock->advance(35);  // Nobody fires at 40, 50 and 60.
  scheduler_.fireDueTimers();
  EXPECT_THAT(fired, ElementsAre("ten 65", "twenty-five 65"));
  EXPECT_EQ(scheduler_.nextTimerDeadline(), 70);

  fired.clear();
  world_->clock->setNow(Date{0});
  scheduler_.fireDueTimers();
  EXPECT_THAT(fired, ElementsAre()) << "the wall clock is none of a timer's business";
}

TEST_P(SchedulerContract, FractionsAddUpToTheirSum) {
  int fired = 0;
  main_.startRepeatingTimer(0.1, [&] { ++fired; });
  for (int i = 0; i < 10; ++i) world_->advance(0.1);
  world_->advance(1);
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
  world_->advance(5);
  EXPECT_EQ(own, 1);
  EXPECT_EQ(others, 0);
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_LT(scheduler_.nextTimerDeadline(), 0);
}

INSTANTIATE_TEST_SUITE_P(Schedulers, SchedulerContract,
                         testing::Values(Kind{"OwnMainThread", make<OwnThreadWorld>},
                                         Kind{"AdoptedMainThread", make<AdoptedWorld>},
                                         Kind{"HostLoop", make<HostLoopWorld>}, Kind{"Manual", make<ManualWorld>}),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
}  // namespace zorvane::platform
