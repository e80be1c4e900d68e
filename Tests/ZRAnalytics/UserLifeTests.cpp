#include "ZRAnalytics/UserTest.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"

namespace zorvane::testing {
namespace {

class UserLifeTest : public UserTest {
 protected:
  void SetUp() override { host_.advertising = advertising_; }
  std::function<void(bool)> noting() {
    return [this](bool success) { order_.push_back(success ? "reset yes" : "reset no"); };
  }
  std::shared_ptr<FakeAdvertising> advertising_ = std::make_shared<FakeAdvertising>();
};

TEST_F(UserLifeTest, AttributesOfEveryTypeAreSetOnTheirQueue) {
  startWithSession();
  const auto setAll = [] {
    facade().setUserAttributeForKey("x", "a");
    facade().setUserAttributeTimestampForKey(2.5, "t");
    facade().setUserAttributeDateForKey(Date{3.25}, "d");
    facade().setUserAttributeDateForKey(std::nullopt, "d");
    for (const Value& iso : {Value("1970-01-01T00:00:04Z"), Value("1970-01-01T00:00:05.250Z"), Value("1970-01-01"),
                             Value(""), Value("1970-01-01T00:00:04Z "), Value()}) {
      facade().setUserAttributeISODateStringForKey(iso, "i");
    }
    facade().setUserAttributeLocationLatitudeLongitudeForKey(1, -2.5, "l");
    facade().trackUserPushPreference(false);
  };
  setAll();
  EXPECT_EQ(currentNames(), Names{}) << "nothing happens on the caller's thread";
  EXPECT_EQ(recorded(),
            (Names{userAttribute(R"({"a":"x"})"), userAttribute(R"({"timestamp":[{"t":2500.0}]})"),
                   userAttribute(R"({"timestamp":[{"d":3250.0}]})"), userAttribute(R"({"timestamp":[{"i":4000.0}]})"),
                   userAttribute(R"({"timestamp":[{"i":5250.0}]})"),
                   userAttribute(R"({"location":[{"l":"1.000000,-2.500000"}]})"),
                   userAttribute(R"({"USER_PUSH_PREFERENCE":false})")}));
  EXPECT_TRUE(log_->has("UserAttribute a tracked with Value x"));

  log_->clear();
  facade().setUserAttributeForKey("x", "a");
  facade().setUserAttributeForKey("x", Value());
  facade().setUserAttributeForKey(" u", USER_ATTRIBUTE_UNIQUE_ID);
  EXPECT_EQ(recorded(), Names{userAttribute(R"({"USER_ATTRIBUTE_UNIQUE_ID":"u"})")});
  EXPECT_EQ(log_->count("UserAttribute wasn't tracked as it was already present OR the key/value was nil"), 2u);
  EXPECT_FALSE(log_->has("UserAttribute USER_ATTRIBUTE_UNIQUE_ID tracked with Value u"));
  facade().setAlias("v");
  EXPECT_EQ(recorded(), Names{userAttribute(R"({"USER_ATTRIBUTE_UNIQUE_ID":"v","USER_ID_MODIFIED_FROM":"u"})")});

  for (const char* gate : {"account_active", "data_tracking_enabled", "sdk_enabled"}) {
    updateRemoteConfiguration({{gate, false}});
    log_->clear();
    setAll();
    facade().setAlias("w");
    EXPECT_EQ(scheduler_->pendingTasks(), 0u) << gate;
    EXPECT_TRUE(log_->messages().empty()) << gate;
    updateRemoteConfiguration({{gate, true}});
  }
  facade().setUserAttributeISODateStringForKey(7, "i");
  EXPECT_TRUE(
      reportedError("ZRAnalyticsUser", "setUserAttributeISODateStringForKey", "exception : the date is no text: 7"));
}

TEST_F(UserLifeTest, ResetLogsOutAndStartsANewUser) {
  startWithSession();
  facade().setUserAttributeForKey("u", USER_ATTRIBUTE_UNIQUE_ID);
  settle();
  const Value oldSession = sessionID();
  const Value oldID = *ZRCoreUtils::getSDKUniqueIdForUser();
  recordOrder();
  facade().resetUserWithCompletionBlock(noting());
  settle();
  EXPECT_TRUE(cameInOrder({"ZRVUserReset", "Report add successful on reset user", "ZRVInitNewUser",
                           "Creating new user now", "reset yes", "ZRVUpdateModules"}));
  EXPECT_EQ(reported(), (Names{userAttribute(R"({"USER_ATTRIBUTE_UNIQUE_ID":"u"})"), "ZRV_LOGOUT silent"}));
  EXPECT_FALSE(handler().getIdentifierDictionary());
  EXPECT_NE(sessionID(), oldSession);
  EXPECT_NE(Value(*ZRCoreUtils::getSDKUniqueIdForUser()), oldID);
  EXPECT_EQ(deviceRequests().size(), 1u);
  // The new user's attributes.
  EXPECT_EQ(recorded().size(), 4u + 2u) << "model and vendor identifier, advertising identifier twice";
  EXPECT_EQ(facade().getTrackedIDFA(), Value("IDFA-1"));
}

TEST_F(UserLifeTest, ResetReportsFailureUnlessEverythingWasAccepted) {
  startWithSession();
  recordOrder();
  // An unreadable file has nothing to send.
  writeAll(batchPath(), "no batches");
  facade().resetUserWithCompletionBlock(noting());
  settle();
  EXPECT_TRUE(cameInOrder({"ZRVUserReset", "ZRVInitNewUser", "reset no"}));
  EXPECT_FALSE(log_->has("Report add successful on reset user"));
  std::filesystem::remove(batchPath());
  recorded();
  order_.clear();
  service_->decide = [](const auto&) { return 500; };
  facade().resetUserWithCompletionBlock(noting());
  settle();
  EXPECT_TRUE(cameInOrder({"Report add unsuccessful on reset user", "ZRVInitNewUser", "reset no", "ZRVUpdateModules"}));
  EXPECT_EQ(recorded(), Names{}) << "not registered: no model, no advertising identifier";

  // With the SDK disabled the logout completes immediately and the flush is blocked.
  updateRemoteConfiguration({{"sdk_enabled", false}});
  order_.clear();
  facade().resetUserWithCompletionBlock(noting());
  settle();
  EXPECT_EQ(order_, (Names{"Reports API Blocked", "ZRVInitNewUser", "reset no"})) << "and no new user";

  for (const Dictionary& stopping :
       {Dictionary{{"account_active", false}, {"sdk_enabled", true}},
        Dictionary{{"account_active", true}, {"blacklisted_events", Array{"ZRV_LOGOUT"}}}}) {
    updateRemoteConfiguration(stopping);
    order_.clear();
    facade().resetUserWithCompletionBlock(noting());
    facade().clearUserInfo();
    settle();
    EXPECT_EQ(placeOf("reset no") + placeOf("ZRVInitNewUser"), 2 * order_.size());
  }
}

TEST_F(UserLifeTest, OptOutClearsStoredDataOnceAndRegistersEachChange) {
  startWithSession();
  facade().setUserAttributeForKey("x", "a");
  settle();
  save({"saved"});
  track({"current"});
  writeAll(dumpPath(), "{}\n");
  ZRAnalyticsUtils::saveAdvertisingID("IDFA-1");
  const auto preference = [this](std::size_t request) {
    const auto meta = deviceRequests().at(request).body.asDictionary()->objectForKey("meta");
    return meta.asDictionary()->objectForKey("dev_pref").asDictionary()->objectForKey("e_t_p");
  };
  facade().optOutOfDataTracking(false);
  settle();
  EXPECT_TRUE(service_->requests().empty()) << "nothing changed";
  EXPECT_FALSE(handler().getUserAttributesArray().empty());

  facade().setUserAttributeLocationLatitudeLongitudeForKey(1, 2, "on its way");
  facade().setUserAttributeTimestampForKey(1, "on its way");
  facade().optOutOfDataTracking(true);
  settle();
  EXPECT_TRUE(handler().getUserAttributesArray().empty());
  EXPECT_EQ(recorded(), Names{});
  EXPECT_FALSE(std::filesystem::exists(batchPath()) || std::filesystem::exists(dumpPath()));
  EXPECT_EQ(facade().getTrackedIDFA(), Value());
  EXPECT_FALSE(ZRConfigDataManager::sharedInstance().isDataTrackingEnabled());

  facade().setPushGDPROptOutStatusForKey(true, kUserAttributeNameGDPRPushOptOut);
  facade().setPushGDPROptOutStatusForKey(true, kUserAttributeNameGDPRPushOptOut);
  facade().setPushGDPROptOutStatusForKey(true, "other");
  facade().updateOptOutEvents({"allowed", 7});
  track({"allowed", "refused"});
  const Names whileOptedOut{userAttribute(R"({"ZORVANE_PUSH_OPTED_OUT":true})"),
                            userAttribute(R"({"ZORVANE_PUSH_OPTED_OUT":true})"), "allowed"};
  EXPECT_EQ(recorded(), whileOptedOut);
  track({"allowed"});
  facade().optOutOfDataTracking(true);
  settle();
  EXPECT_EQ(currentNames(), Names{"allowed"}) << "cleared by the change only";
  ASSERT_EQ(deviceRequests().size(), 1u);
  EXPECT_EQ(preference(0), Value(false));
  recorded();

  service_->decide = [](const auto&) { return 500; };
  facade().optOutOfDataTracking(false);
  settle();
  ASSERT_EQ(deviceRequests().size(), 2u);
  EXPECT_EQ(preference(1), Value(true));
  EXPECT_EQ(recorded().size(), 4u + 2u) << "model, vendor and advertising identifier, though the request failed";

  updateRemoteConfiguration({{"account_active", false}});
  facade().optOutOfDataTracking(true);
  EXPECT_TRUE(ZRConfigDataManager::sharedInstance().isDataTrackingEnabled());
}

TEST_F(UserLifeTest, IdentifiersAreSentAgainAfterOptingBackIn) {
  startWithSession({{"idfv", "V"}, {"account_active", false}});  // no gate but the attributes' own
  updateRemoteConfiguration({{"account_active", true}});
  facade().trackAdvertisingIdentifier();
  recorded();
  const Names vendor{R"(EVENT_ACTION_DEVICE_ATTRIBUTE {"device_IDFV":"V"})"};
  const auto after = [this](void (ZRAnalytics::*optOutOf)(bool), bool optOut) {
    (facade().*optOutOf)(optOut);
    return recorded();
  };
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(after(&ZRAnalytics::optOutOfIDFVTracking, false), Names{}) << "unchanged";
    EXPECT_EQ(after(&ZRAnalytics::optOutOfIDFVTracking, true), Names{});
    EXPECT_FALSE(ZRConfigDataManager::sharedInstance().isIDFVTrackingEnabled());
    EXPECT_EQ(after(&ZRAnalytics::optOutOfIDFVTracking, false), vendor);

    EXPECT_EQ(after(&ZRAnalytics::optOutOfIDFATracking, false), Names{});
    EXPECT_EQ(after(&ZRAnalytics::optOutOfIDFATracking, true), Names{});
    EXPECT_EQ(facade().getTrackedIDFA(), Value());
    // The user attribute is still cached.
    EXPECT_EQ(after(&ZRAnalytics::optOutOfIDFATracking, false),
              Names{R"(EVENT_ACTION_DEVICE_ATTRIBUTE {"ADVERTISING_IDENTIFIER":"IDFA-1"})"});
    EXPECT_EQ(facade().getTrackedIDFA(), Value("IDFA-1"));
  }
  EXPECT_TRUE(service_->requests().empty());
}

TEST_F(UserLifeTest, RemovedIdentifiersAreRemovedFromTheFileToo) {
  const std::pair<std::string_view, std::function<void()>> cases[] = {
      {kUserDefaultsKeyModifiedUserAttrUniqueID, [] { facade().updateModules(); }},
      {kUserDefaultsKeyIDFA, [] { facade().optOutOfDataTracking(true); }},
      {kUserDefaultsKeyIDFA, [] { facade().optOutOfIDFATracking(true); }},
      {kUserDefaultsKeyIDFA,
       [] {
         setSDKEnabled(false);
         facade().zorvaneSDKStateUpdated();
       }},
      {kUserDefaultsKeyIDFA, [] { events().cleanUp(); }},
  };
  for (const auto& [key, remove] : cases) {
    inEarlierLaunch([&, name = key, work = remove] {
      startWithSession();
      ZRCoreUtils::getSDKUserDefault().setObjectForKey("old value", name);
      ASSERT_TRUE(ZRCoreUtils::getSDKUserDefault().synchronize());
      EXPECT_NE(defaultsFile().find("old value"), std::string::npos);
      work();
      settle();
      EXPECT_EQ(defaultsFile().find("old value"), std::string::npos) << &name - &cases[0].first;
    });
  }
}

}  // namespace
}  // namespace zorvane::testing
