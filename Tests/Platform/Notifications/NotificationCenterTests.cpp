#include "Platform/Notifications/NotificationCenter.h"

#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>
#include <thread>

namespace zorvane::platform {
namespace {

using testing::ElementsAre;

class NotificationCenterTest : public testing::Test {
 protected:
  NotificationCenter center_;
  std::vector<std::string> calls_;
  NotificationCenter::Observer note(std::string text) {
    return [this, text](std::string_view name) { calls_.push_back(text + " " + std::string(name)); };
  }
};

TEST_F(NotificationCenterTest, CallsTheObserversOfTheNameInOrderAfterTheHook) {
  center_.addObserver("a", note("first"));
  const ObserverId gone = center_.addObserver("a", note("gone"));
  center_.addObserver("b", note("other"));
  center_.addObserver("a", note("last"));
  center_.setPostHook(note("hook"));
  center_.removeObserver(gone);
  center_.removeObserver(gone);
  center_.post("a");
  center_.post("nobody's");
  EXPECT_THAT(calls_, ElementsAre("hook a", "first a", "last a", "hook nobody's"));
  calls_.clear();
  center_.setPostHook(nullptr);
  center_.post("b");
  EXPECT_THAT(calls_, ElementsAre("other b"));
}

TEST_F(NotificationCenterTest, AChangeDuringAPostCountsFromTheNextPost) {
  ObserverId second = 0;
  const ObserverId first = center_.addObserver("a", [&](std::string_view) {
    calls_.push_back("first");
    center_.removeObserver(first);
    center_.removeObserver(second);
    center_.addObserver("a", note("new"));
  });
  second = center_.addObserver("a", note("second"));
  center_.post("a");
  EXPECT_THAT(calls_, ElementsAre("first", "second a"));
  calls_.clear();
  center_.post("a");
  EXPECT_THAT(calls_, ElementsAre("new a"));
}

TEST_F(NotificationCenterTest, AThrowingObserverCostsItsOwnCallOnly) {
  int uncaught = 0;
  center_.setUncaughtHandler([&](std::exception_ptr) { ++uncaught; });
  center_.setPostHook([](std::string_view) { throw std::runtime_error("hook"); });
  center_.addObserver("a", [](std::string_view) { throw std::runtime_error("observer"); });
  center_.addObserver("a", note("second"));
  center_.post("a");
  EXPECT_THAT(calls_, ElementsAre("second a"));
  EXPECT_EQ(uncaught, 2);
}

TEST_F(NotificationCenterTest, ThreadsMayPostAndRegisterAtOnce) {
  std::atomic<int> calls{0};
  center_.addObserver("a", [&](std::string_view) { ++calls; });
  const auto work = [&] {
    for (int round = 0; round < 400; ++round) {
      const ObserverId id = center_.addObserver("a", [held = std::make_shared<int>(0)](std::string_view) {});
      center_.post("a");
      center_.removeObserver(id);
    }
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_EQ(calls, 800);
}

}  // namespace
}  // namespace zorvane::platform
