#include "Platform/Files/DefaultsStore.h"
#include "Platform/Files/SystemCalls.h"
#include "ZRAnalytics/UserTest.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRDefaults.h"

namespace zorvane::testing {
namespace {

using FacadeTest = UserTest;

TEST_F(FacadeTest, KeysOfEarlierReleasesMoveIntoTheSDKsStore) {
  start();
  platform::DefaultsStore& standard = platform::standardDefaults();
  platform::DefaultsStore& own = platform::sdkDefaults();
  own.setObjectForKey("old", kUserDefaultsKeySDKVersion);
  own.setObjectForKey("kept", kUserDefaultsKeyModifiedUserAttrUniqueID);
  standard.setObjectForKey("new", kUserDefaultsKeySDKVersion);
  standard.setObjectForKey(Dictionary{{"1.0", "INSTALL"}}, kUserDefaultsKeyVersionInstallStatus);
  standard.setObjectForKey("IDFA", kUserDefaultsKeyIDFA);
  standard.setObjectForKey("other", "hosts_own");
  Names synchronized;
  platform::setSynchronizeHook([&](const std::string& store) {
    synchronized.push_back(store);
    // Before the standard store is written: a kill in between must not lose the keys.
    const platform::DefaultsStore written("written", (directory_ / "Defaults" / "sdk.plist").string());
    EXPECT_EQ(written.objectForKey(kUserDefaultsKeyIDFA), Value("IDFA"));
  });
  facade();
  EXPECT_EQ(standard.dictionaryRepresentation(), (Dictionary{{"hosts_own", "other"}}));
  EXPECT_EQ(own.dictionaryRepresentation(), (Dictionary{{"ZRV_SDK_Version", "new"},
                                                        {"ZRV_App_Version_App_Status", Dictionary{{"1.0", "INSTALL"}}},
                                                        {"Zrv_MODIFIED_USER_ID", "kept"},
                                                        {"ZRV_ADVERTISING_ID", "IDFA"}}));
  EXPECT_EQ(synchronized, (Names{"standard", "sdk"}));
  EXPECT_EQ(ZorvaneCore::sharedInstance().appIdUpdateDelegate().get(), &facade());
  EXPECT_TRUE(service_->requests().empty());
}

TEST_F(FacadeTest, OldKeysGoWithTheFirstWriteOfTheNewStoreThatSucceeds) {
  start();
  platform::standardDefaults().setObjectForKey("old", kUserDefaultsKeySDKVersion);
  (void)platform::standardDefaults().synchronize();
  const auto left = [this] {
    const platform::DefaultsStore written("written", (directory_ / "Defaults" / "standard.plist").string());
    return written.objectForKey(kUserDefaultsKeySDKVersion);
  };
  platform::SystemCalls failing = platform::kRealSystemCalls;
  failing.fsync = [](int) { return -1; };
  platform::setSystemCalls(&failing);
  facade();
  platform::setSystemCalls(nullptr);
  EXPECT_EQ(left(), Value("old"));
  keepInDefaults("new", kUserDefaultsKeySDKVersion);
  EXPECT_EQ(left(), Value()) << "the next launch would put it over the new one";
}

TEST_F(FacadeTest, FlushReportsItsResultAndClosedGatesDropEvents) {
  startWithSession();
  std::vector<bool> results;
  const auto flush = [&] {
    facade().flushWithCompletionBlock([&](bool success) { results.push_back(success); });
    settle();
  };
  flush();
  facade().trackEventWithProperties("a", ZRProperties::initWithAttributes({{"n", 1}}));
  settle();
  service_->decide = [](const auto&) { return 503; };
  flush();
  facade().flushWithCompletionBlock([](bool) { throw std::runtime_error("completion"); });
  settle();
  EXPECT_TRUE(reportedError("ZRAnalytics", "flushWithCompletionBlock", "SyncNow exception : completion"));
  EXPECT_EQ(results, (std::vector<bool>{true, false}));

  updateRemoteConfiguration({{"account_active", false}});
  log_->clear();
  facade().trackEventWithProperties("closed", nullptr);
  flush();
  facade().syncNow();
  settle();
  EXPECT_TRUE(log_->messages().empty());
  EXPECT_EQ(results.size(), 2u);
  updateRemoteConfiguration({{"account_active", true}, {"sdk_enabled", false}});
  facade().trackEventWithProperties("disabled", nullptr);
  flush();
  EXPECT_EQ(results, (std::vector<bool>{true, false, false}));
  EXPECT_EQ(log_->messages(), (Names{"Flush Initiated", "Reports API Blocked"}));

  updateRemoteConfiguration({{"sdk_enabled", true}});
  service_->decide = [](const auto&) { return 200; };
  facade().syncNow();
  settle();
  EXPECT_EQ(sentNames(), (Batches{{"a"}, {"a"}, {"a"}}));
  EXPECT_EQ(reportedEvents()[1].objectForKey("EVENT_ATTRS"), Value(Dictionary{{"n", 1}}));
}

TEST_F(FacadeTest, UpdateSendsWhatEarlierLaunchesLeft) {
  for (const int status : {200, 500}) {
    inEarlierLaunch([&] {
      startWithSession();
      save({"saved"});
    });
    inEarlierLaunch([&] {
      start();
      writeAll(dumpPath(), "{\"EVENT_ACTION\":\"dumped\"}\n");
      service_->decide = [status](const auto&) { return status; };
      facade().updateModules();
      EXPECT_NE(sessionID(), Value());
      settle();
      // A refused dump is in the batch file before the flush reads it.
      EXPECT_EQ(sentNames(),
                status == 200 ? (Batches{{"dumped"}, {"saved"}}) : (Batches{{"dumped"}, {"dumped"}, {"saved"}}));
      EXPECT_EQ(log_->count("Report add successful for previous sessions"), status == 200 ? 1u : 0u);
      EXPECT_EQ(log_->count("Report add unsuccessful for previous sessions"), status == 200 ? 0u : 1u);
      EXPECT_EQ(std::filesystem::exists(batchPath()), status != 200);
      std::filesystem::remove(batchPath());
    });
  }
}

TEST_F(FacadeTest, NewAppIdentifierResetsTheUserAfterTheFlushEvenIfItFailed) {
  startWithSession();
  Names order;
  center_->addObserver(kNotificationNameUserReset, [&](std::string_view) { order.push_back("reset"); });
  service_->decide = [&](const auto&) {
    order.push_back("request");
    return 500;
  };
  track({"a"});
  facade().appIDChangeHandledWithCompletionBlock([&] { order.push_back("done"); });
  settle();
  EXPECT_EQ(order, (Names{"request", "reset", "done"}));
  updateRemoteConfiguration({{"account_active", false}});
  facade().appIDChangeHandledWithCompletionBlock([&] { order.push_back("done"); });
  settle();
  EXPECT_EQ(order.size(), 3u);
}

TEST_F(FacadeTest, DisablingTheSDKRemovesEverythingAndEnablingStartsANewSession) {
  start();
  events();
  facade().updateModules();
  settle();
  save({"saved"});
  track({"current"});
  writeAll(dumpPath(), "{}\n");
  ZRAnalyticsUtils::saveAdvertisingID("IDFA");
  handler().setUserAttributeUniqueID("u");
  settle();
  const Value oldSession = sessionID();
  setSDKEnabled(false);
  facade().zorvaneSDKStateUpdated();
  settle();
  EXPECT_FALSE(std::filesystem::exists(batchPath()));
  EXPECT_FALSE(std::filesystem::exists(dumpPath()));
  EXPECT_TRUE(currentNames().empty());
  EXPECT_FALSE(handler().getIdentifierDictionary());
  EXPECT_EQ(ZRAnalyticsUtils::getSavedAdvertisingID(), Value());
  EXPECT_EQ(sessionID(), Value());
  EXPECT_TRUE(log_->has("Flush Timer Stopped"));
  scheduler_->advance(600);
  EXPECT_FALSE(log_->has("Periodic Flush Initiated"));

  setSDKEnabled(true);
  facade().zorvaneSDKStateUpdated();
  EXPECT_NE(sessionID(), Value());
  EXPECT_NE(sessionID(), oldSession);
}

TEST_F(FacadeTest, OpenedURLCountsOnceAndOnlyWithAnActiveAccount) {
  startWithSession({{"account_active", false}});
  const URL url{"app://open?utm_source=mail"};
  facade().processURL(url);
  facade().updateSourcesForCurrentSession(ZRSourceArray{ZRSource::initSourceWithURL(url.absoluteString)});
  updateRemoteConfiguration({{"account_active", true}});
  facade().processURL(std::nullopt);
  EXPECT_TRUE(log_->messages().empty());
  EXPECT_TRUE(ZRSessionManager::sharedSessionManager().getCurrentSessionSourceInfoArray().empty());

  // The proxy is allowed but not configured, so the facade passes the URL on.
  facade().processURL(url);
  EXPECT_TRUE(log_->has("Incoming URL : app://open?utm_source=mail"));
  ZRAnalyticsUtils::appDelegateProxyConfigured();
  log_->clear();
  facade().processURL(url);
  EXPECT_EQ(log_->messages(), (Names{"AppDelegate proxy is enabled."}));
  updateRemoteConfiguration({{"app_delegate_proxy_enabled", false}});
  facade().processURL(url);
  EXPECT_TRUE(log_->has("Incoming URL : app://open?utm_source=mail"));
}

}  // namespace
}  // namespace zorvane::testing
