#include <atomic>
#include <thread>

#include "ZRAnalytics/UserTest.h"

namespace zorvane::testing {
namespace {

class FakeLocale final : public platform::LocaleService {
 public:
  std::optional<std::string> localeIdentifier() const override {
    if (throws) throw std::runtime_error("no locale");
    return "de_AT";
  }
  std::optional<std::string> countryCode() const override { return country; }
  std::optional<std::string> languageCode() const override { return "de"; }
  std::optional<std::string> displayNameForCountryCode(const std::string& code) const override { return code + "!"; }
  std::optional<std::string> displayNameForLanguageCode(const std::string&) const override { return std::nullopt; }
  std::optional<std::string> displayNameForIdentifier(const std::string& identifier) const override {
    return identifier + "!";
  }
  std::optional<std::string> country = "AT";
  bool throws = false;
};

class UserAttributesHandlerTest : public UserTest {
 protected:
  static bool set(const Value& value, const Value& name = "a", bool checkStorage = true) {
    return handler().setUserAttributeValueWithNameCheckStorage(value, name, checkStorage);
  }
  static Value uniqueID() {
    return handler().getIdentifierDictionary().value_or(Dictionary()).objectForKey("zrv_user_id");
  }
  static std::string login(const std::string& id) {
    return userAttribute(R"({"USER_ATTRIBUTE_UNIQUE_ID":")" + id + "\"}");
  }
  static std::string alias(const std::string& id, const std::string& old) {
    return userAttribute(R"({"USER_ATTRIBUTE_UNIQUE_ID":")" + id + R"(","USER_ID_MODIFIED_FROM":")" + old + "\"}");
  }
  std::string cacheFile() const { return library("ZrvData/ZRUserAttributes"); }
  std::string legacyFile() const { return documents("ZorvaneUserAttributes.plist"); }
};

TEST_F(UserAttributesHandlerTest, OnlyTextAndNumbersWithANameAreAccepted) {
  startWithSession();
  const struct {
    Value value, name;
    std::string sent;  // empty: refused
    std::string log;
  } cases[] = {
      {"text", "a", R"({"a":"text"})", ""},
      {"", "b", R"({"b":""})", ""},
      {7, "c", R"({"c":7})", ""},
      {2.5, "d", R"({"d":2.5})", ""},
      {true, "e", R"({"e":true})", ""},
      {Value(), "f", "", "Value passed as nil while setting f user attribute"},
      {Value(), Value(), "", "Key cannot be nil while setting user attribute"},
      {"text", Value(), "", "Key cannot be nil while setting user attribute"},
      {Date{1}, "g", "", "The attribue value should be either of string, number or bool"},
      {Array{1}, "h", "", "The attribue value should be either of string, number or bool"},
      {null, "i", "", "The attribue value should be either of string, number or bool"},
  };
  for (const auto& [value, name, sent, log] : cases) {
    log_->clear();
    EXPECT_EQ(set(value, name), !sent.empty()) << name.description();
    EXPECT_EQ(recorded(), sent.empty() ? Names{} : Names{userAttribute(sent)});
    EXPECT_TRUE(log.empty() || log_->messages() == Names{log}) << log;
  }
  EXPECT_EQ(handler().getUserAttributesArray().size(), 5u) << "refused values are not cached";
}

TEST_F(UserAttributesHandlerTest, UnchangedValueIsSentAgainOnlyUnchecked) {
  startWithSession();
  EXPECT_TRUE(set(1));
  EXPECT_EQ(log_->messages(), Names{"User Attribute(a) updated to value(1)"});
  EXPECT_FALSE(set(1));
  EXPECT_TRUE(log_->has("User Attribute(a) tracked with already existing value(1)"));
  EXPECT_TRUE(set(1, "a", false));
  EXPECT_TRUE(set(2, "a", false)) << "bypasses the cache";
  EXPECT_FALSE(set(1));
  EXPECT_EQ(recorded(), (Names{userAttribute(R"({"a":1})"), userAttribute(R"({"a":1})"), userAttribute(R"({"a":2})")}));
}

TEST_F(UserAttributesHandlerTest, GatesDifferFromSetterToSetter) {
  startWithSession();
  const auto setAll = [] {
    set(1);
    set(true, "ZORVANE_PUSH_OPTED_OUT");
    handler().setUserAttributeTimestampForKey(1.5, "t");
    handler().setUserAttributeLocationLatitudeLongitudeForKey(48.2, -16.25, "l");
    handler().setUserAttributeUniqueID("u");
  };
  ZRConfigDataManager::sharedInstance().setDataTrackingOptedOut(true);
  setAll();
  EXPECT_EQ(recorded(), (Names{userAttribute(R"({"ZORVANE_PUSH_OPTED_OUT":true})"),
                               userAttribute(R"({"timestamp":[{"t":1500.0}]})"),
                               userAttribute(R"({"location":[{"l":"48.200000,-16.250000"}]})")}));
  ZRConfigDataManager::sharedInstance().setDataTrackingOptedOut(false);
  setSDKEnabled(false);
  log_->clear();
  setAll();
  EXPECT_EQ(log_->messages(), Names{"setUserAttributeUniqueID: SDK is Disabled"});
  setSDKEnabled(true);
  EXPECT_EQ(recorded(), Names{});
  EXPECT_EQ(uniqueID(), Value());
}

TEST_F(UserAttributesHandlerTest, LoginUsesTheTrimmedTextOfAnyValue) {
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

TEST_F(UserAttributesHandlerTest, AnotherLoginLogsTheOldUserOutFirst) {
  for (const int status : {200, 500}) {
    inEarlierLaunch([&] {
      startWithSession();
      handler().setUserAttributeUniqueID("a");
      set("old", "mail");
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

TEST_F(UserAttributesHandlerTest, ForcedLogoutDuringASyncCompletesImmediatelyAndAgainAfterIt) {
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

TEST_F(UserAttributesHandlerTest, LastLoginWinsWhateverOrderResetsAndResponsesCome) {
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

TEST_F(UserAttributesHandlerTest, InterruptedForcedLogoutIsCompletedByTheNextLaunch) {
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

TEST_F(UserAttributesHandlerTest, LaterChoiceReplacesTheStoredIdentifierOfAnInterruptedLogout) {
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

TEST_F(UserAttributesHandlerTest, RemovedStoredIdentifierIsNotLost) {
  startWithSession();
  handler().setUserAttributeUniqueID("a");
  settle();
  handler().setUserAttributeUniqueID("b");
  while (kept(kUserDefaultsKeyModifiedUserAttrUniqueID).isNil()) ASSERT_TRUE(scheduler_->runOne());
  ZRCoreUtils::getSDKUserDefault().removeObjectForKey(kUserDefaultsKeyModifiedUserAttrUniqueID);
  settle();
  EXPECT_EQ(uniqueID(), Value("b"));
}

TEST_F(UserAttributesHandlerTest, AliasRenamesTheUserWithoutALogout) {
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

TEST_F(UserAttributesHandlerTest, LocaleIsSentAsUserAndAsDeviceAttributes) {
  const auto locale = std::make_shared<FakeLocale>();
  host_.locale = locale;
  startWithSession({{"account_active", false}});
  facade().trackLocale();
  updateRemoteConfiguration({{"account_active", true}});
  EXPECT_EQ(recorded(), Names{}) << "inactive account";
  facade().trackLocale();
  Names expected;
  for (const char* pair :
       {R"({"LOCALE_COUNTRY":"AT"})", R"({"LOCALE_COUNTRY_DISPLAY":"AT!"})", R"({"LOCALE_LANGUAGE":"de"})",
        R"({"LOCALE_DISPLAY":"de_AT!"})", R"({"LOCALE_IDENTIFIER":"de_AT"})"}) {
    expected.push_back(std::string("EVENT_ACTION_USER_ATTRIBUTE ") + pair);
    expected.push_back(std::string("EVENT_ACTION_DEVICE_ATTRIBUTE ") + pair);
  }
  EXPECT_EQ(recorded(), expected);
  EXPECT_TRUE(log_->has("Value passed as nil while setting LOCALE_LANGUAGE_DISPLAY user attribute"));
  locale->country = std::nullopt;
  handler().trackLocale();
  EXPECT_EQ(recorded(), Names{}) << "unchanged or unknown";
  EXPECT_TRUE(log_->has("Value passed as nil while setting LOCALE_COUNTRY_DISPLAY user attribute"));
  locale->throws = true;
  handler().trackLocale();
  EXPECT_TRUE(reportedError("ZRUserAttributesHandler", "trackLocale", "exception while tracking Locale no locale"));
}

TEST_F(UserAttributesHandlerTest, LegacyFileIsMigratedWithoutAnEvent) {
  const struct {
    std::string content;
    Value uniqueID, segmentID;
  } cases[] = {
      {"<key>USER_ATTRIBUTE_UNIQUE_ID</key><string>u</string><key>USER_ATTRIBUTE_SEGMENT_ID</key><integer>7</integer>"
       "<key>other</key><string>x</string>",
       "u", 7},
      {"<key>USER_ATTRIBUTE_SEGMENT_ID</key><string>s</string>", Value(), "s"},
      {"", Value(), Value()},
      {"broken", Value(), Value()},
  };
  for (const auto& [content, unique, segment] : cases) {
    writeAll(legacyFile(), "<plist version=\"1.0\"><dict>" + content + "</dict></plist>");
    inEarlierLaunch([&, unique = unique, segment = segment] {
      startWithSession();
      EXPECT_EQ(uniqueID(), unique);
      EXPECT_EQ(handler().getIdentifierDictionary().value_or(Dictionary()).objectForKey("segment_id"), segment);
      EXPECT_EQ(recorded(), Names{});
      EXPECT_TRUE(log_->has("User Attributes Data persisted"));
    });
    EXPECT_FALSE(std::filesystem::exists(legacyFile()));
    inEarlierLaunch([&, unique = unique] {
      startWithSession();
      EXPECT_EQ(uniqueID(), unique) << "from the new file";
    });
    std::filesystem::remove(cacheFile());
  }
}

TEST_F(UserAttributesHandlerTest, CacheIsWrittenWhenTheApplicationLeavesTheForeground) {
  inEarlierLaunch([this] {
    startWithSession();
    set(1, "kept");
    center_->post(platform::kWillResignActiveNotification);
    EXPECT_EQ(log_->count("User Attributes Data persisted"), 1u);
    set(1, "lost");
  });
  inEarlierLaunch([this] {
    startWithSession();
    EXPECT_FALSE(set(1, "kept"));
    EXPECT_TRUE(set(1, "lost"));
    handler().clearUserAttributesData();
    EXPECT_FALSE(handler().getIdentifierDictionary());
  });
  startWithSession();
  EXPECT_TRUE(set(1, "kept")) << "the file was cleared too";
}

TEST_F(UserAttributesHandlerTest, CacheFileOfAnEarlierReleaseIsReadAndWritten) {
  std::filesystem::create_directory(library("ZrvData"));
  writeAll(cacheFile(), readAll(ZR_SOURCE_DIR "/Fuzz/corpus/ModuleArchive/earlier-attributes.bplist"));
  const std::pair<const char*, Value> expected[] = {{"USER_ATTRIBUTE_UNIQUE_ID", "u\xC3\xA4"},
                                                    {"integer", 42},
                                                    {"big", 9007199254740993},
                                                    {"double", 0.1},
                                                    {"bool", true},
                                                    {"mutable", "text"},
                                                    {"missing", Value()}};
  for (int launch = 0; launch < 2; ++launch) {
    inEarlierLaunch([&] {
      start();
      const auto attributes = handler().getUserAttributesArray();
      ASSERT_EQ(attributes.size(), std::size(expected));
      for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(attributes[i].attributeName(), expected[i].first);
        EXPECT_EQ(attributes[i].attributeValue().kind(), expected[i].second.kind()) << expected[i].first;
        EXPECT_EQ(attributes[i].attributeValue(), expected[i].second) << expected[i].first;
        EXPECT_EQ(attributes[i].lastTracked(), i < 6 ? std::optional(Date{kStart + 0.25}) : std::nullopt);
      }
      handler().persistUserAttributesData();
    });
  }
}

TEST_F(UserAttributesHandlerTest, AttributeSetByManyThreadsIsSentOnce) {
  constexpr int kThreads = 4, kRounds = 500;
  host_.scheduler = platform::makeThreadScheduler(clock_);
  start({{"periodic_flush_enabled", false}, {"event_batch_count", -1}});
  std::atomic<int> arrived{0}, sent{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&] {
      for (int round = 1; round <= kRounds; ++round) {
        const std::string name = "a" + std::to_string(round);
        ++arrived;
        while (arrived < kThreads * round) std::this_thread::yield();
        if (set("same", name)) ++sent;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  host_.scheduler->waitUntilIdle();
  EXPECT_EQ(sent, kRounds);
  EXPECT_EQ(currentNames().size(), static_cast<std::size_t>(kRounds));
}

}  // namespace
}  // namespace zorvane::testing
