#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "Stepping/ManualScheduler.h"

namespace zorvane::platform {
namespace {

using testing::ElementsAre;

class ManualSchedulerTest : public testing::Test {
 protected:
  std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>(Date{100});
  ManualScheduler scheduler_{clock_};
  std::vector<std::string> story_;
  Task note(std::string text) {
    return [this, text] { story_.push_back(text); };
  }
};

TEST_F(ManualSchedulerTest, StepsThroughTheTasksOfAllQueuesInPostOrder) {
  const auto serial = scheduler_.makeSerialQueue("serial");
  scheduler_.globalQueue(Priority::Background).async(note("background"));
  serial->async([this, &serial] {
    story_.push_back("serial");
    serial->async(note("serial again"));
  });
  scheduler_.mainQueue().async(note("main"));
  EXPECT_EQ(scheduler_.pendingTasks(), 3U);
  EXPECT_TRUE(scheduler_.runOne());
  EXPECT_THAT(story_, ElementsAre("background"));
  scheduler_.runAll();
  EXPECT_THAT(story_, ElementsAre("background", "serial", "main", "serial again"));
  EXPECT_FALSE(scheduler_.runOne());
  EXPECT_TRUE(scheduler_.mainQueue().isCurrent());
}

TEST_F(ManualSchedulerTest, TimePassesFromTimerToTimerWithAllTasksRunBetween) {
  scheduler_.mainQueue().startRepeatingTimer(10, [&] {
    scheduler_.globalQueue(Priority::Default).async([&] {
      story_.push_back("task at " + std::to_string(static_cast<int>(clock_->now().secondsSince1970)));
    });
  });
  scheduler_.advance(25);
  EXPECT_THAT(story_, ElementsAre("task at 110", "task at 120"));
  EXPECT_EQ(clock_->now(), Date{125});
  EXPECT_EQ(clock_->monotonicSeconds(), 25);
}

TEST_F(ManualSchedulerTest, CodeOffItsQueueEndsTheProcess) {
  const auto serial = scheduler_.makeSerialQueue("reports");
  EXPECT_DEATH(serial->assertCurrent(), "queue \"reports\"");
}

}  // namespace
}  // namespace zorvane::platform
