#include "ZRAnalytics/UserTest.h"

namespace zorvane::testing {
namespace {

constexpr std::string_view kActive = platform::kDidBecomeActiveNotification;
constexpr std::string_view kResign = platform::kWillResignActiveNotification;
constexpr std::string_view kForeground = platform::kWillEnterForegroundNotification;
constexpr std::string_view kBackground = platform::kDidEnterBackgroundNotification;
constexpr std::string_view kTerminate = platform::kWillTerminateNotification;

class LifecycleTest : public UserTest {
 protected:
  void SetUp() override { host_.application = application_; }
  void startFacade(const Dictionary& configuration = {}) {
    startWithSession(configuration);
    facade();
  }
  void post(std::string_view notification) {
    center_->post(notification);
    settle();
  }
  static void setDeviceAddFailed(bool failed) {
    ZRCoreUtils::getSDKUserDefault().setObjectForKey(failed, kUserDefaultsKeyHasDeviceAddFailed);
  }
  std::shared_ptr<FakeApplication> application_ = std::make_shared<FakeApplication>();
};

TEST_F(LifecycleTest, LeavingTheForegroundRecordsEventsAndSendsThemTwice) {
  startFacade();
  post(kActive);
  EXPECT_EQ(currentNames(), Names{"EVENT_ACTION_IOS_SESSION_START"});
  post(kResign);
  // The batch may be saved before the session end is recorded.
  EXPECT_EQ(reported(), (Names{"EVENT_ACTION_IOS_SESSION_START"}));
  EXPECT_EQ(application_->calls, (Names{"begin ZRVTask 1", "end 1"}));
  EXPECT_EQ(facade().reportsBGTask(), 1u) << "keeps its last value";
  post(kBackground);
  EXPECT_EQ(reported(), (Names{"EVENT_ACTION_IOS_SESSION_START", "EVENT_ACTION_IOS_SESSION_END", "ZRV_APP_EXIT"}));
  EXPECT_EQ(application_->calls, (Names{"begin ZRVTask 1", "end 1", "begin bg_zrv_app_exit 2", "end 2"}));
  EXPECT_EQ(facade().zrvAppExitBGTask(), 2u);
  EXPECT_EQ(log_->count("Report add successful on Session End"), 2u);
  log_->clear();
  post(kForeground);
  EXPECT_TRUE(log_->has("All the tracked events are already synced with Zorvane :]")) << "the modules are updated";
  EXPECT_FALSE(log_->has("Report add successful for previous sessions")) << "nothing was attempted";
  EXPECT_EQ(reported().size(), 3u);
  post(kTerminate);
  EXPECT_EQ(reported().size(), 4u);
  EXPECT_EQ(reported().back(), "ZRV_APP_EXIT");
  EXPECT_EQ(application_->calls.back(), "end 3");
}

TEST_F(LifecycleTest, TaskEndsWhateverTheFlushResultAndOnlyAnAttemptIsLogged) {
  startFacade();
  save({"event"});
  service_->decide = [](const auto&) { return 500; };
  post(kResign);
  post(kBackground);
  EXPECT_EQ(log_->count("Report add unsuccessful on Session End"), 2u);
  setAppIdentifier("");
  post(kResign);
  setSDKEnabled(false);
  post(kBackground);  // the event's completion comes at once
  EXPECT_TRUE(log_->has("Reports API Blocked"));
  EXPECT_EQ(log_->count("Report add unsuccessful on Session End"), 2u);
  EXPECT_EQ(application_->calls, (Names{"begin ZRVTask 1", "end 1", "begin bg_zrv_app_exit 2", "end 2",
                                        "begin ZRVTask 3", "end 3", "begin bg_zrv_app_exit 4", "end 4"}));
}

TEST_F(LifecycleTest, AppExitSyncWaitsForTheEventAndNeverComesWithoutIt) {
  startFacade();
  center_->post(kBackground);
  EXPECT_EQ(scheduler_->pendingTasks(), 1u);
  while (currentNames().empty()) ASSERT_TRUE(scheduler_->runOne());
  EXPECT_TRUE(application_->calls.empty());
  settle();
  EXPECT_EQ(application_->calls.size(), 2u);
  updateRemoteConfiguration({{"blacklisted_events", Array{"ZRV_APP_EXIT"}}});
  post(kBackground);
  EXPECT_EQ(application_->calls.size(), 2u);
}

TEST_F(LifecycleTest, ExpiredTaskIsEndedByTheSystemAndAgainByItsFlush) {
  startFacade();
  save({"event"});
  service_->hold = true;
  post(kResign);
  application_->expirations.at(0)();
  EXPECT_EQ(application_->calls, (Names{"begin ZRVTask 1", "end 1"}));
  service_->answerNext(200);
  settle();
  EXPECT_EQ(application_->calls, (Names{"begin ZRVTask 1", "end 1", "end 1"}));
  post(kBackground);
  application_->expirations.at(1)();
  EXPECT_EQ(application_->calls.back(), "end 2");
}

TEST_F(LifecycleTest, OnlyTheAppExitEndsATaskThatWasNotGiven) {
  application_->hasTasks = false;
  startFacade();
  post(kResign);
  EXPECT_TRUE(application_->calls.empty());
  post(kBackground);
  EXPECT_EQ(application_->calls, Names{"end 0"});
  EXPECT_EQ(reported().size(), 2u);
}

TEST_F(LifecycleTest, FailedRegistrationIsRepeatedWhenTheApplicationLeaves) {
  startFacade();
  setDeviceAddFailed(true);
  service_->decide = [](const auto& request) { return request.url.find("/device/") == std::string::npos ? 200 : 500; };
  Names order;
  log_->onMessage = [&](const std::string& message) { order.push_back(message); };
  post(kResign);
  EXPECT_EQ(application_->calls, (Names{"begin ZRVDeviceUpdateTask 1", "begin ZRVTask 2", "end 1", "end 2"}));
  EXPECT_EQ(deviceRequests().size(), 1u);
  EXPECT_EQ(kept(kUserDefaultsKeyHasDeviceAddFailed), Value(true));
  EXPECT_EQ(service_->requests()[0].url, "http://service.test/v1/device/APP") << "sent before the event is tracked";

  service_->decide = [](const auto&) { return 200; };
  application_->calls.clear();
  post(kResign);
  EXPECT_EQ(application_->calls, (Names{"begin ZRVDeviceUpdateTask 3", "begin ZRVTask 4", "end 3", "end 4"}));
  EXPECT_EQ(facade().deviceUpdateBGTask(), 3u);
  application_->calls.clear();
  post(kResign);
  EXPECT_EQ(application_->calls, (Names{"begin ZRVTask 5", "end 5"}));

  // Without a request only the expiration ends the task.
  setDeviceAddFailed(true);
  updateRemoteConfiguration({{"query_params", null}});
  application_->calls.clear();
  post(kResign);
  EXPECT_EQ(application_->calls, (Names{"begin ZRVDeviceUpdateTask 6", "begin ZRVTask 7", "end 7"}));
  application_->expirations.at(5)();
  EXPECT_EQ(application_->calls.back(), "end 6");
}

TEST_F(LifecycleTest, InactiveAccountOnlyWritesTheDefaults) {
  startFacade({{"account_active", false}});
  setDeviceAddFailed(true);
  Names synchronized;
  platform::setSynchronizeHook([&](const std::string& store) { synchronized.push_back(store); });
  for (const auto notification :
       {kActive, kResign, kForeground, kBackground, kTerminate, kNotificationNameInitNewUser}) {
    post(notification);
  }
  EXPECT_EQ(synchronized, Names{"sdk"});
  EXPECT_EQ(log_->messages(), Names{"Account Disabled"});
  EXPECT_TRUE(application_->calls.empty());
  EXPECT_TRUE(service_->requests().empty());
  EXPECT_EQ(recorded(), Names{});
}

}  // namespace
}  // namespace zorvane::testing
