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
