// Who the user is: logins, forced logouts, aliases, and a login that an earlier launch left.
#include "ZRAnalytics/UserTest.h"

namespace zorvane::testing {
namespace {

class LoginTest : public UserTest {
 protected:
  static std::string login(const std::string& id) {
    return userAttribute(R"({"USER_ATTRIBUTE_UNIQUE_ID":")" + id + "\"}");
  }
  static std::string alias(const std::string& id, const std::string& old) {
    return userAttribute(R"({"USER_ATTRIBUTE_UNIQUE_ID":")" + id + R"(","USER_ID_MODIFIED_FROM":")" + old + "\"}");
  }
};

TEST_F(LoginTest, LoginUsesTheTrimmedTextOfAnyValue) {
  startWithSession({{"restricted_unique_ids", Array{"0", "guest"}}});
  const struct {
    Value value;
    std::optional<std::string> id;
  } cases[] = {{" \tabc\t ", "abc"},
               {42, "42"},
               {2.5, "2.5"},
               {true, "1"},
               {"a b", "a b"},
               {"\n", "\n"},
               {" ", ""},
               {Value(), "(null)"},
               {null, "<null>"},
               {0, std::nullopt},
               {" guest", std::nullopt}};
  for (const auto& [value, id] : cases) {
    handler().clearUserAttributesData();
    log_->clear();
    handler().setUserAttributeUniqueID(value);
    EXPECT_EQ(uniqueID(), id ? Value(*id) : Value()) << value.description();
    EXPECT_EQ(recorded().size(), id ? 1u : 0u);
    EXPECT_TRUE(log_->has(id ? "User Attribute Unique ID tracked with Value " + *id
                             : (value.isString() ? "guest" : "0") +
                                   std::string(" is a restricted value for User Attribute Unique ID, hence its not "
                                               "considered")));
  }
  handler().setUserAttributeUniqueID("u");
  handler().setUserAttributeUniqueID(" u");
  EXPECT_EQ(recorded(), Names{login("u")}) << "the same user: neither sent again nor logged out";
}

TEST_F(LoginTest, AnotherLoginLogsTheOldUserOutFirst) {
  for (const int status : {200, 500}) {
    inEarlierLaunch([&] {
      startWithSession();
      handler().setUserAttributeUniqueID("a");
      handler().setUserAttributeValueWithNameCheckStorage("old", "mail", true);
      settle();
      ZRCoreUtils::getSDKUserDefault().setObjectForKey("IDFA", kUserDefaultsKeyIDFA);
      service_->decide = [status](const auto&) { return status; };
      center_->addObserver(kNotificationNameUserReset, [](std::string_view) {
        EXPECT_EQ(kept(kUserDefaultsKeyModifiedUserAttrUniqueID), Value("b")) << "removed last";
        EXPECT_EQ(uniqueID(), Value("a"));
      });
      recordOrder();
      handler().setUserAttributeUniqueID(" b ");
      settle();
      EXPECT_TRUE(cameInOrder({"Force Logout Initiated as USER_ATTRIBUTE_UNIQUE_ID was different",
                               "Report Add request initiated:", "ZRVUserReset",
                               status == 200 ? "User Force logged out" : "User Force logged out : sync unsuccessful",
                               "ZRVInitNewUser", "User Attribute(USER_ATTRIBUTE_UNIQUE_ID) updated to value(b)",
                               "User Attribute Unique ID tracked with Value b"}));
      EXPECT_EQ(reported(),
                (Names{login("a"), userAttribute(R"({"mail":"old"})"), R"(ZRV_LOGOUT {"type":"forced"} silent)"}));
      const Value identifiers = service_->requests().at(0).body.asDictionary()->objectForKey("identifiers");
      EXPECT_EQ(identifiers, Value(Dictionary{{"zrv_user_id", "a"}}));
      EXPECT_EQ(kept(kUserDefaultsKeyModifiedUserAttrUniqueID), Value());
      EXPECT_EQ(kept(kUserDefaultsKeyIDFA), Value());
      EXPECT_EQ(currentNames().front(), "EVENT_ACTION_USER_ATTRIBUTE");
      EXPECT_EQ(handler().getUserAttributesArray().size(), 1u) << "nothing of the old user but the new identifier";
      std::filesystem::remove(batchPath());
      std::filesystem::remove(handler().getFilePathForUserAttribute());
    });
  }
}

TEST_F(LoginTest, ForcedLogoutDuringASyncCompletesImmediatelyAndAgainAfterIt) {
  startWithSession();
  handler().setUserAttributeUniqueID("a");
  save({"event"});
  service_->hold = true;
  Answers answers;
  flush(answers);
  settle();
  handler().setUserAttributeUniqueID("b");
  settle();
  EXPECT_EQ(uniqueID(), Value("b"));
  EXPECT_EQ(log_->count("User Force logged out : sync unsuccessful"), 1u);
  EXPECT_EQ(kept(kUserDefaultsKeyModifiedUserAttrUniqueID), Value("b")) << "the parked reset takes the user away again";
  service_->answerNext(200);
  settle();
  EXPECT_EQ(kept(kUserDefaultsKeyModifiedUserAttrUniqueID), Value("b")) << "the parked reset is running";
  while (service_->heldCount() != 0) service_->answerNext(200);
  settle();
  EXPECT_EQ(log_->count("User Force logged out"), 1u);
  EXPECT_EQ(uniqueID(), Value("b"));
  EXPECT_EQ(kept(kUserDefaultsKeyModifiedUserAttrUniqueID), Value());
}

TEST_F(LoginTest, LastLoginWinsWhateverOrderResetsAndResponsesCome) {
  const struct {
    Names logins;  // "-" is a logout
    Value winner;
  } cases[] = {
      {{"b"}, "b"},           {{"b", "b"}, "b"},     {{"b", "c"}, "c"},           {{"b", "c", "a"}, "a"},
      {{"-", "-", "x"}, "x"}, {{"b", "-"}, Value()}, {{"-", "b", "c", "b"}, "b"}, {{"b", "-", "-", "c"}, "c"},
  };
  // The responses come before the login with this number; a flush runs from the start if the number is not 0.
  for (std::size_t responses = 0; responses < 3; ++responses) {
    for (const auto& item : cases) {
      inEarlierLaunch([&] {
        startWithSession();
        handler().setUserAttributeUniqueID("a");
        save({"event"});
        service_->hold = true;
        Answers answers;
        if (responses != 0) flush(answers);
        settle();
        std::size_t number = 0;
        for (const std::string& login : item.logins) {
          if (++number == responses && service_->heldCount() != 0) service_->answerNext(number % 2 == 0 ? 500 : 200);
          if (login == "-") {
            facade().resetUser();
          } else {
            facade().setUserAttributeForKey(login, USER_ATTRIBUTE_UNIQUE_ID);
          }
          settle();
          EXPECT_TRUE(item.winner.isNil() || login != item.logins.back() || uniqueID() == item.winner ||
                      kept(kUserDefaultsKeyModifiedUserAttrUniqueID) == item.winner)
              << "for the next launch";
        }
        for (int round = 0; round < 20 && service_->heldCount() != 0; ++round) {
          service_->answerNext(200);
          settle();
        }
        EXPECT_EQ(service_->heldCount(), 0u);
        EXPECT_EQ(uniqueID(), item.winner)
            << Value(Array(item.logins.begin(), item.logins.end())).description() << responses;
        EXPECT_EQ(kept(kUserDefaultsKeyModifiedUserAttrUniqueID), Value());
        save({"later"});
        flush(answers);
        settle();
        while (service_->heldCount() != 0) service_->answerNext(200);
        settle();
        EXPECT_EQ(uniqueID(), item.winner) << "no reset is left over";
        std::filesystem::remove(handler().getFilePathForUserAttribute());
        std::filesystem::remove(batchPath());
      });
    }
  }
}

TEST_F(LoginTest, InterruptedForcedLogoutIsCompletedByTheNextLaunch) {
  // The first launch ends before, the second after the reset; the service of the second one is slow.
  for (const bool interruptedAgain : {false, true}) {
    inEarlierLaunch([this] {
      startWithSession({{"unique_id", "U"}});  // a generated one would write the defaults too
      handler().setUserAttributeUniqueID("a");
      center_->post(platform::kWillResignActiveNotification);
      service_->hold = true;
      handler().setUserAttributeUniqueID("b");
      settle();
      EXPECT_EQ(uniqueID(), Value("a"));
    });
    inEarlierLaunch([&] {
      start({{"periodic_flush_enabled", false}});
      EXPECT_EQ(kept(kUserDefaultsKeyModifiedUserAttrUniqueID), Value("b"));
      service_->hold = true;
      facade().updateModules();
      settle();
      EXPECT_EQ(kept(kUserDefaultsKeyModifiedUserAttrUniqueID), Value("b"));
      log_->clear();
      facade().updateModules();
      settle();
      EXPECT_FALSE(log_->has("Force Logout Initiated as USER_ATTRIBUTE_UNIQUE_ID was different")) << "it is on its way";
      while (!interruptedAgain && service_->heldCount() != 0) {
        service_->answerNext(200);
        settle();
        EXPECT_EQ(uniqueID(), Value("b"));
      }
      EXPECT_EQ(kept(kUserDefaultsKeyModifiedUserAttrUniqueID).isNil(), !interruptedAgain);
    });
    inEarlierLaunch([this] {
      startWithSession();
      facade().updateModules();
      settle();
      EXPECT_EQ(uniqueID(), Value("b"));
      EXPECT_EQ(kept(kUserDefaultsKeyModifiedUserAttrUniqueID), Value());
      std::filesystem::remove(handler().getFilePathForUserAttribute());
      std::filesystem::remove(batchPath());
    });
  }
}

TEST_F(LoginTest, LaterChoiceReplacesTheStoredIdentifierOfAnInterruptedLogout) {
  const auto loginInterrupted = [this] {
    startWithSession();
    handler().setUserAttributeUniqueID("a");
    service_->hold = true;
    handler().setUserAttributeUniqueID("b");
    settle();
    EXPECT_EQ(kept(kUserDefaultsKeyModifiedUserAttrUniqueID), Value("b"));
  };
  const auto nextLaunch = [this](const Value& expected) {
    inEarlierLaunch([&] {
      startWithSession();
      facade().updateModules();
      settle();
      EXPECT_EQ(uniqueID(), expected);
    });
  };
  inEarlierLaunch(loginInterrupted);
  inEarlierLaunch([this] {
    startWithSession();
    handler().updateUserAttributeUniqueID("c");
  });
  nextLaunch("c");
  inEarlierLaunch([&] {
    loginInterrupted();
    facade().optOutOfDataTracking(true);
    EXPECT_EQ(kept(kUserDefaultsKeyModifiedUserAttrUniqueID), Value());
    while (service_->heldCount() != 0) service_->answerNext(200);
    settle();
    facade().optOutOfDataTracking(false);
  });
  nextLaunch(Value());

  inEarlierLaunch([&] {
    startWithSession();
    handler().setUserAttributeUniqueID("a");
    settle();
    log_->onMessage = [](const std::string& message) {
      if (message.find("Force Logout Initiated") == 0) facade().optOutOfDataTracking(true);
    };
    facade().setUserAttributeForKey("b", USER_ATTRIBUTE_UNIQUE_ID);
    settle();
    facade().optOutOfDataTracking(false);
  });
  nextLaunch(Value());
}

TEST_F(LoginTest, RemovedStoredIdentifierIsNotLost) {
  startWithSession();
  handler().setUserAttributeUniqueID("a");
  settle();
  handler().setUserAttributeUniqueID("b");
  while (kept(kUserDefaultsKeyModifiedUserAttrUniqueID).isNil()) ASSERT_TRUE(scheduler_->runOne());
  ZRCoreUtils::getSDKUserDefault().removeObjectForKey(kUserDefaultsKeyModifiedUserAttrUniqueID);
  settle();
  EXPECT_EQ(uniqueID(), Value("b"));
}

TEST_F(LoginTest, AliasRenamesTheUserWithoutALogout) {
  startWithSession({{"restricted_unique_ids", Array{"guest"}}, {"user_attribute_caching_duration", 100}});
  const struct {
    Value value;
    double after;  // seconds since the one before
    Names sent;
    std::string log;
  } cases[] = {
      {Value(), 0, {}, "USER_ATTRIBUTE_UNIQUE_ID coudn't be updated as Value is invalid"},
      {Date{1}, 0, {}, "USER_ATTRIBUTE_UNIQUE_ID coudn't be updated as Value is invalid"},
      {"guest ", 0, {}, "guest is a restricted value for User Attribute Unique ID, hence it couldn't be updated"},
      {"a", 0, {alias("a", "(null)")}, "Set Alias called for Unique ID with existing value((null)) and new value(a)"},
      {" b\t", 0, {alias("b", "a")}, "Set Alias called for Unique ID with existing value(a) and new value(b)"},
      {"b", 100, {}, "Set Alias is called with existing value(b) of USER_ATTRIBUTE_UNIQUE_ID"},
      {"b", 1, {login("b")}, "Set Alias is called with existing value(b) of USER_ATTRIBUTE_UNIQUE_ID"},
      {424242, 0, {alias("424242", "b")}, "Attribute value changed from (b) to (424242)"},
  };
  for (const auto& [value, after, sent, log] : cases) {
    clock_->advance(after);
    log_->clear();
    handler().updateUserAttributeUniqueID(value);
    EXPECT_TRUE(log_->has(log)) << log;
    EXPECT_EQ(log_->has("User Attributes Data persisted"), !sent.empty()) << "at once, where anything changed: " << log;
    EXPECT_EQ(recorded(), sent) << log;
  }
  EXPECT_NE(readAll(cacheFile()).find("424242"), std::string::npos);

  setSDKEnabled(false);
  handler().updateUserAttributeUniqueID("c");
  EXPECT_EQ(uniqueID(), Value("c")) << "only the event is gated";
  setSDKEnabled(true);
  EXPECT_EQ(recorded(), Names{});
}

}  // namespace
}  // namespace zorvane::testing
