#include "Platform/Dispatch/TaskFifo.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <random>

namespace zorvane::platform {
namespace {

TEST(Task, RunsAndReleasesSmallAndLargeCallables) {
  const auto held = std::make_shared<int>(0);
  const auto check = [&](auto padding) {
    Task task = [held, padding] { *held += static_cast<int>(padding.size()); };
    Task moved = std::move(task);
    EXPECT_FALSE(task);
    moved();
    EXPECT_EQ(held.use_count(), 2);
    moved = Task();
    EXPECT_EQ(held.use_count(), 1);
  };
  check(std::array<char, 8>{});
  check(std::array<char, 500>{});
  EXPECT_EQ(*held, 508);
}

TEST(TaskFifo, KeepsOrderAndReleasesWhatItHeldWhateverTheFillLevel) {
  std::minstd_rand random(7);
  const auto held = std::make_shared<int>(0);
  int pushed = 0, ran = 0;
  {
    TaskFifo fifo, other;
    for (int phase = 0; phase < 400; ++phase) {
      for (auto pushes = random() % 90; pushes > 0; --pushes, ++pushed) {
        fifo.push([&ran, held, mine = pushed] { EXPECT_EQ(mine, ran++); });
      }
      if (other.empty()) fifo.swap(other);
      for (auto pops = random() % 90; pops > 0 && !other.empty(); --pops) {
        other.front()();
        other.popFront();
      }
      ASSERT_EQ(static_cast<std::size_t>(held.use_count()), 1 + fifo.size() + other.size());
    }
    EXPECT_GT(ran, 5000);
  }
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace zorvane::platform
