#include "ZRAnalytics/ZRHosting.h"

#include "Platform/Files/SystemCalls.h"
#include "ZRAnalytics/UserTest.h"

namespace zorvane::testing {
namespace {

class TransportThatAnswersTwice final : public NetworkTransport {
 public:
  explicit TransportThatAnswersTwice(std::shared_ptr<NetworkTransport> service) : service_(std::move(service)) {}
  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override {
    service_->send(std::move(request), [completion = std::move(completion)](const TransportResponse& response) {
      completion(response);
      completion(response);
    });
  }

 private:
  std::shared_ptr<NetworkTransport> service_;
};

class HostingTest : public UserTest {
 protected:
  // A device without locale, so that the order below holds what every device tracks.
  void SetUp() override {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(name);
  }
  platform::Status startModule(const Dictionary& configuration = {}) {
    ZRStartOptions options;
    options.host.clock = clock_;
    options.host.scheduler = scheduler_;
    options.host.application = application_;
    options.host.directories = {documents(""), library(""), (directory_ / "Defaults").string()};
    options.core.endpoint = "http://service//";
    options.core.appId = "APP";
    options.core.transport = transport_;
    options.core.remoteConfiguration = configuration;
    options.log = log_;
    return startAnalytics(std::move(options));
  }
  std::size_t registrations() const {
    std::size_t count = 0;
    for (const auto& request : service_->requests()) count += request.url == "http://service/v1/device/APP" ? 1 : 0;
    return count;
  }
  std::shared_ptr<NetworkTransport> transport_ = service_;
  std::shared_ptr<FakeApplication> application_ = std::make_shared<FakeApplication>();
};

TEST_F(HostingTest, AStartRegistersTheDeviceOnceAndAnEndLeavesNothingUnsent) {
  inEarlierLaunch([this] {
    EXPECT_TRUE(startModule({{"device_model", "Phone"}}));
    facade().trackEventWithProperties("first", nullptr);
    EXPECT_TRUE(endAnalytics(60));
    EXPECT_EQ(registrations(), 1u);
    EXPECT_EQ(reported(),
              (Names{"INSTALL", R"(EVENT_ACTION_DEVICE_ATTRIBUTE {"device_model":"Phone"})",
                     R"(EVENT_ACTION_DEVICE_ATTRIBUTE {"device_model_name":""})",
                     R"(EVENT_ACTION_DEVICE_ATTRIBUTE {"os_version":""})",
                     R"(EVENT_ACTION_DEVICE_ATTRIBUTE {"device_IDFV":""})", "EVENT_ACTION_IOS_SESSION_START", "first",
                     "EVENT_ACTION_IOS_SESSION_END", "ZRV_APP_EXIT"}));
  });
  ASSERT_TRUE(startModule({{"device_model", "Phone"}}));
  EXPECT_TRUE(endAnalytics(60));
  EXPECT_EQ(registrations(), 0u);
  EXPECT_EQ(reported(), (Names{"EVENT_ACTION_IOS_SESSION_START", "EVENT_ACTION_IOS_SESSION_END", "ZRV_APP_EXIT"}));
}

TEST_F(HostingTest, WhatIsRefusedOrNotAnsweredIsSavedForTheNextLaunch) {
  ASSERT_TRUE(startModule());
  service_->decide = [](const auto&) { return 503; };
  facade().trackEventWithProperties("kept", nullptr);
  EXPECT_FALSE(endAnalytics(60));
  EXPECT_FALSE(batchFile().empty());
  service_->decide = [](const auto&) { return 200; };
  service_->hold = true;
  facade().trackEventWithProperties("late", nullptr);
  EXPECT_FALSE(endAnalytics(0));
  EXPECT_FALSE(ZREventsHandler::sharedInstance().viewsInfoArray()) << "saved";
  service_->hold = false;
  while (service_->heldCount() > 0) service_->answerNext(200);
  EXPECT_TRUE(endAnalytics(60));
  EXPECT_TRUE(batchFile().empty());
}

TEST_F(HostingTest, AnEndThatCannotSaveIsNoSuccess) {
  ASSERT_TRUE(startModule());
  EXPECT_TRUE(endAnalytics(60));
  facade().trackEventWithProperties("lost", nullptr);
  platform::SystemCalls failing = platform::kRealSystemCalls;
  failing.fsync = [](int) { return -1; };
  platform::setSystemCalls(&failing);
  EXPECT_FALSE(endAnalytics(60));
  platform::setSystemCalls(nullptr);
}

TEST_F(HostingTest, ASecondAnswerToARequestDoesNotStandForAnother) {
  transport_ = std::make_shared<TransportThatAnswersTwice>(service_);
  ASSERT_TRUE(startModule());
  settle();
  service_->hold = true;
  for (const char* name : {"a", "b"}) {
    facade().trackEventWithProperties(name, nullptr);
    settle();
    events().saveCurrentBatch();
  }
  std::vector<bool> results;
  events().flushWithCompletionBlock([&](bool success, bool) { results.push_back(success); });
  settle();
  service_->answerNext(200);
  settle();
  EXPECT_TRUE(results.empty());
  service_->answerNext(503);
  settle();
  EXPECT_EQ(results, std::vector<bool>{false});
}

TEST_F(HostingTest, AnOpenedURLReachesTheSessionWithTheProxyAndWithout) {
  for (const bool isProxied : {true, false}) {
    inEarlierLaunch([&] {
      ASSERT_TRUE(startModule({{"app_delegate_proxy_enabled", isProxied}}));
      openURL(std::nullopt);
      openURL(URL{std::string("shop://a?utm_source=") + (isProxied ? "proxied" : "told")});
      settle();
      const Array sources = ZRSessionManager::sharedSessionManager().getCurrentSessionSourceInfoArray();
      ASSERT_EQ(sources.size(), 1u);
      EXPECT_EQ(log_->has("AppDelegate proxy is enabled."), isProxied);
      EXPECT_EQ(sources[0].asDictionary()->objectForKey("source"), Value(isProxied ? "proxied" : "told"));
    });
  }
}

TEST_F(HostingTest, AWrongStartChangesNothing) {
  const auto wrong = startModule({{"event_batch_count", "many"}});
  ASSERT_FALSE(wrong);
  EXPECT_NE(wrong.error().message.find("event_batch_count"), std::string::npos);
  ASSERT_TRUE(startModule());
  EXPECT_FALSE(startModule()) << "a second start";
}

}  // namespace
}  // namespace zorvane::testing
