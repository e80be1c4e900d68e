#include <limits>

#include "Platform/Files/DefaultsStore.h"
#include "Platform/Formats/JSON.h"
#include "Support/FileFaults.h"
#include "Support/ModuleTest.h"
#include "ZorvaneCore/ZRAppDelegateSwizzler.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRCoreUtils.h"
#include "ZorvaneCore/ZRDateUtils.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"
#include "ZorvaneCore/ZRNetworkConfiguration.h"
#include "ZorvaneCore/ZRNetworkRequest.h"
#include "ZorvaneCore/ZorvaneCore.h"

namespace zorvane::testing {
namespace {

class CoreTest : public ModuleTest {
 protected:
  static ZRConfigDataManager& store() { return ZRConfigDataManager::sharedInstance(); }
  static Dictionary configurationOf(std::string_view json) { return *platform::parseJSON(json).value().asDictionary(); }
};

TEST_F(CoreTest, EachSwitchOfTheConfigurationHasItsOwnGetter) {
  start();
  const std::pair<const char*, std::function<bool()>> switches[] = {
      {"account_active", [] { return store().isAccountActive(); }},
      {"sdk_enabled", ZRCoreUtils::isSDKEnabled},
      {"data_tracking_enabled", [] { return store().isDataTrackingEnabled(); }},
      {"idfv_tracking_enabled", [] { return store().isIDFVTrackingEnabled(); }},
      {"idfa_tracking_enabled", [] { return store().isIDFATrackingEnabled(); }},
      {"push_enabled", [] { return store().isPushNotificationEnabled(); }},
      {"in_app_enabled", [] { return store().isInAppEnabled(); }},
      {"periodic_flush_enabled", [] { return store().isPeriodicFlushEnabled(); }},
      {"app_delegate_proxy_enabled", ZRAppDelegateSwizzler::isAppDelegateProxyEnabled},
  };
  for (const auto& [off, ignored] : switches) {
    updateRemoteConfiguration({{off, false}});
    for (const auto& [key, get] : switches) EXPECT_EQ(get(), key != std::string(off)) << key << " with " << off;
    updateRemoteConfiguration({{off, true}});
  }
  EXPECT_FALSE(ZorvaneCore::sharedInstance().isDeviceUniqueIDPresentInKeyChain());
}

TEST_F(CoreTest, GettersReturnTheGivenConfiguration) {
  const Dictionary given = configurationOf(R"({
      "event_batch_count": 1, "periodic_flush_duration": 2, "minimum_periodic_flush_duration": 3, "s_i_d": 4,
      "user_attribute_caching_duration": 5, "idfa_authorization": 6, "app_group_id": "g", "app_version": "2.0",
      "sdk_version": "3.0", "idfv": "v", "device_model": "m", "device_name": "n", "os_version": "o", "idfa": "a",
      "locale": "de_DE", "unique_id": "u", "query_params": {"os": "x"}, "blacklisted_events": ["B"],
      "whitelisted_events": ["W"], "instant_flush_events": ["I"], "source_extra_keys": ["k", "l"],
      "restricted_unique_ids": ["R"], "device_id_in_secure_store": true})");
  start(given);
  EXPECT_EQ((Array{store().getEventBatchCount(), store().getPeriodicFlushDuration(),
                   store().getMinimumPeriodicFlushDurationLimit(), store().getSessionInActiveDuration(),
                   store().getUserAttributeCachingDuration()}),
            (Array{1, 2, 3, 4, 5}));
  EXPECT_EQ((Array{*store().getAppGroupID(), ZRCoreUtils::appVersion(), ZRCoreUtils::getZorvaneSDKVersion(),
                   ZRCoreUtils::getIDFV(), ZRCoreUtils::getDeviceModel(), ZRCoreUtils::getDeviceName(),
                   ZRCoreUtils::getDeviceSystemVersion()}),
            (Array{"g", "2.0", "3.0", "v", "m", "n", "o"}));
  EXPECT_EQ(store().getSourceExtraKeys(), (Array{"k", "l"}));
  for (const char* name : {"B", "W", "I", "R", "", "b"}) {
    EXPECT_EQ(store().isEventBlackListed(name), name == std::string("B"));
    EXPECT_EQ(store().isEventWhitelistedEvent(name), name == std::string("W"));
    EXPECT_EQ(store().isEventInstantFlushEvent(name), name == std::string("I"));
    EXPECT_EQ(store().isUniqueIDRestricted(name), name == std::string("R"));
  }
  EXPECT_TRUE(ZorvaneCore::sharedInstance().isDeviceUniqueIDPresentInKeyChain());
  const Dictionary effective = effectiveConfiguration();
  for (const auto& [key, value] : given) EXPECT_EQ(effective.objectForKey(key), value) << key.view();
  updateRemoteConfiguration({{"app_group_id", ""}, {"idfa", null}});
  EXPECT_FALSE(store().getAppGroupID());
  EXPECT_EQ(effectiveConfiguration().objectForKey("idfa"), null);
  EXPECT_EQ(store().getZrvAppID(), "APP");
  setAppIdentifier("");
  EXPECT_FALSE(store().getZrvAppID());
}

TEST_F(CoreTest, MalformedConfigurationNamesItsKeyAndChangesNothing) {
  start();
  const Dictionary before = effectiveConfiguration();
  const char* const malformed[] = {// types
                                   R"("account_active": 1)", R"("s_i_d": 1.5)", R"("s_i_d": true)", R"("idfa": 7)",
                                   R"("app_version": null)", R"("blacklisted_events": "A")", R"("unique_id": 7)",
                                   R"("source_extra_keys": ["a", 1])", R"("query_params": [])",
                                   // keys
                                   R"("no_such_key": 1)"};
  for (const std::string entry : malformed) {
    try {
      updateRemoteConfiguration(configurationOf(R"({"event_batch_count": 9, )" + entry + "}"));
      ADD_FAILURE() << entry << " was taken";
    } catch (const ValueError& error) {
      const std::string key = entry.substr(0, entry.find(':'));
      EXPECT_NE(std::string(error.what()).find(key), std::string::npos) << error.what();
    }
    EXPECT_EQ(effectiveConfiguration(), before) << entry;
  }
}

TEST_F(CoreTest, ChoiceThatCouldNotBeWrittenIsWrittenLater) {
  start();
  bool optedOut = false;
  for (const auto left :
       {platform::kWillResignActiveNotification, platform::kDidEnterBackgroundNotification, std::string_view()}) {
    optedOut = !optedOut;
    platform::FileFaults full(0, platform::FaultKind::FromThereOn, ENOSPC);
    store().setDataTrackingOptedOut(optedOut);
    full.lift();
    left.empty() ? (void)platform::sdkDefaults().synchronize() : center_->post(left);
    platform::DefaultsStore written("written", library("core.plist"));
    EXPECT_EQ(written.boolForKey("data_tracking_opted_out"), optedOut) << left;
  }
}

TEST_F(CoreTest, ChoicesSurviveARestartAndOverrideTheConfiguration) {
  inEarlierLaunch([this] {
    start();
    EXPECT_FALSE(ZRCoreUtils::installRegistered());
    ZRCoreUtils::registerInstall();
    store().setDataTrackingOptedOut(true);
    setSDKEnabled(false);
    EXPECT_FALSE(ZRCoreUtils::isSDKEnabled());
  });
  inEarlierLaunch([this] {
    start();
    ZRSDKConfiguration chosen = ZorvaneCore::sharedInstance().getDefaultSDKConfiguration();
    EXPECT_FALSE(chosen.analyticsPeriodicFlushDuration());
    ZRSDKConfiguration other = chosen;
    chosen.setOptOutIDFATracking(true);
    chosen.setAnalyticsDisablePeriodicFlush(true);
    chosen.setAnalyticsPeriodicFlushDuration(17);
    int completions = 0;
    ZorvaneCore::sharedInstance().updateSDKConfigWithCompletionBlock(chosen, [&] { ++completions; });
    EXPECT_EQ(completions, 0) << "completes later";
    other.setOptOutIDFVTracking(true);
    ZorvaneCore::sharedInstance().updateSDKConfigWithCompletionBlock(other, nullptr);
    settle();
    EXPECT_EQ(completions, 1);
  });
  start({{"sdk_enabled", true}, {"periodic_flush_duration", 60}});
  EXPECT_TRUE(ZRCoreUtils::installRegistered());
  const Dictionary effective = effectiveConfiguration();
  const Dictionary expected = configurationOf(R"({
      "sdk_enabled": false, "data_tracking_enabled": false, "idfv_tracking_enabled": false,
      "idfa_tracking_enabled": false, "periodic_flush_enabled": false, "periodic_flush_duration": 17})");
  for (const auto& [key, value] : expected) EXPECT_EQ(effective.objectForKey(key), value) << key.view();
  setSDKEnabled(true);
  EXPECT_TRUE(ZRCoreUtils::isSDKEnabled());
  updateRemoteConfiguration({{"sdk_enabled", false}});
  EXPECT_FALSE(ZRCoreUtils::isSDKEnabled()) << "both must allow it";
}

TEST_F(CoreTest, UniqueIdentifierIsMadeOnceUnlessConfigured) {
  inEarlierLaunch([this] {
    start();
    writeAll(library("id"), ZRCoreUtils::getSDKUniqueIdForUser().value());
  });
  start({{"query_params", Dictionary{{"os", "x"}, {"n", 1}}}});
  const std::string made = ZRCoreUtils::getSDKUniqueIdForUser().value();
  EXPECT_EQ(made.size(), 36u);
  EXPECT_EQ(made, readAll(library("id")));
  EXPECT_FALSE(effectiveConfiguration().contains("unique_id"));
  EXPECT_EQ(ZRNetworkConfiguration::getQueryParamsBodyDictForService(kServiceReportAdd),
            (Dictionary{{"unique_id", made}, {"os", "x"}, {"n", 1}}));
  ZRCoreUtils::getSDKUserDefault().removeObjectForKey("ZRV_SDK_Unique_ID");
  EXPECT_NE(ZRCoreUtils::getSDKUniqueIdForUser().value(), made) << "another user, another identifier";

  updateRemoteConfiguration({{"unique_id", "fixed"}});
  EXPECT_EQ(ZRCoreUtils::getSDKUniqueIdForUser(), "fixed");
  updateRemoteConfiguration({{"unique_id", null}, {"query_params", Dictionary{}}});
  EXPECT_FALSE(ZRCoreUtils::getSDKUniqueIdForUser());
  EXPECT_EQ(ZRNetworkConfiguration::getQueryParamsBodyDictForService(kServiceReportAdd), Dictionary());
  updateRemoteConfiguration({{"query_params", null}});
  EXPECT_FALSE(ZRNetworkConfiguration::getQueryParamsBodyDictForService(kServiceReportAdd));
}

// Keeps the requests without making their bodies or calling their completions.
class WaitingTransport final : public NetworkTransport {
 public:
  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override {
    requests.push_back(std::move(request));
    completions.push_back(std::move(completion));
  }
  std::vector<TransportRequest> requests;
  std::vector<std::function<void(const TransportResponse&)>> completions;
};

class RequestTest : public CoreTest {
 protected:
  RequestTest() {
    core_.transport = transport_;
    core_.willSendRequest = [this](std::int64_t service, const std::optional<std::string>& bid) {
      EXPECT_TRUE(transport_->requests.empty()) << "called before the request is sent";
      hooks_.push_back("send " + std::to_string(service) + " " + bid.value_or("-"));
    };
    core_.didReceiveResponse = [this](std::int64_t service, const std::optional<std::string>& bid, bool success) {
      hooks_.push_back("response " + std::to_string(service) + " " + bid.value_or("-") + (success ? " yes" : " no"));
    };
  }
  void execute(std::int64_t service, Dictionary body, const Dictionary& params = {}) {
    ZRNetworkRequest::initWithServiceParamsAdditionalHeadersRequestBodyAndAdditionalPathComponent(
        service, params, {{"ZRV-REQUEST-ID", "ID"}}, std::move(body), "A P/1")
        ->executeRequestWithCompletionBlock([this](bool success, const Value& response) {
          responses_.push_back(Array{success, response});
        });
  }
  std::shared_ptr<WaitingTransport> transport_ = std::make_shared<WaitingTransport>();
  std::vector<std::string> hooks_;
  Array responses_;
};

TEST_F(RequestTest, RequestGoesToItsServiceAndMakesItsBodyWhenAsked) {
  start();
  int bodies = 0;
  const Value lazy = platform::lazyJSON(
      [&bodies](std::string& out) {
        ++bodies;
        out += "[1]";
      },
      [] { return Value(); });
  execute(kServiceReportAdd, {{"meta", Dictionary{{"bid", "b-1"}}}, {"viewsInfo", lazy}});
  ASSERT_EQ(transport_->requests.size(), 1u);
  const TransportRequest report = std::move(transport_->requests[0]);
  transport_->requests.clear();
  EXPECT_EQ(report.url, "http://service.test/v1/report/A%20P%2F1");
  EXPECT_EQ(report.headers, (std::vector<std::pair<std::string, std::string>>{{"ZRV-REQUEST-ID", "ID"}}));
  EXPECT_EQ(bodies, 0);
  EXPECT_EQ(report.makeBody(), R"({"meta":{"bid":"b-1"},"viewsInfo":[1]})");
  EXPECT_EQ(bodies, 1);

  execute(kServiceDeviceAdd, {}, {{"a b", "c&d"}, {"n", 1}});
  EXPECT_EQ(transport_->requests.at(0).url, "http://service.test/v1/device/A%20P%2F1?a%20b=c%26d&n=1");
  EXPECT_EQ(transport_->requests[0].makeBody(), "{}");
  EXPECT_EQ(hooks_, (std::vector<std::string>{"send 2 b-1", "send 1 -"}));
  EXPECT_TRUE(responses_.empty());
}

TEST_F(RequestTest, OnlyStatus2xxIsASuccess) {
  start();
  const std::pair<int, bool> cases[] = {{0, false},  {199, false}, {200, true}, {204, true},
                                        {299, true}, {300, false}, {500, false}};
  for (const auto& [status, success] : cases) {
    execute(kServiceDeviceAdd, {});
    transport_->completions.back()(TransportResponse{status, R"({"a": 1})", ""});
    EXPECT_EQ(responses_.back(), (Array{success, Dictionary{{"a", 1}}})) << status;
    transport_->requests.clear();
  }
  execute(kServiceDeviceAdd, {});
  transport_->completions.back()(TransportResponse{200, "no JSON", ""});
  EXPECT_EQ(responses_.back(), (Array{true, Value()}));
}

TEST_F(RequestTest, WithoutAnEndpointTheRequestFailsLater) {
  core_.endpoint = "";
  start();
  execute(kServiceReportAdd, {{"meta", Dictionary{{"bid", "b"}}}});
  EXPECT_TRUE(responses_.empty());
  settle();
  ASSERT_EQ(responses_.size(), 1u);
  EXPECT_EQ(responses_[0], (Array{false, Value()}));
  EXPECT_EQ(hooks_, (std::vector<std::string>{"send 2 b", "response 2 b no"}));
}

class FixedZone final : public platform::TimeZone {
 public:
  std::int64_t secondsFromGMT(Date date) const override { return date < change ? before : after; }
  Date change{1e18};
  std::int64_t before = 0, after = 0;
};

TEST_F(CoreTest, TimesUseTheOffsetOfTheirMoment) {
  const auto zone = std::make_shared<FixedZone>();
  host_.timeZone = zone;
  clock_->setNow(Date{kStart + 0.0009});
  start();
  EXPECT_EQ(ZRDateUtils::getGMTtime(), "2026-11-21T10:00:00.000Z") << "floored";
  const std::pair<std::int64_t, const char*> offsets[] = {{0, "2026-11-21T10:00:00.000+0000"},
                                                          {19800, "2026-11-21T15:30:00.000+0530"},
                                                          {-12600, "2026-11-21T06:30:00.000-0330"},
                                                          {-1800, "2026-11-21T09:30:00.000-0030"},
                                                          {50400, "2026-11-22T00:00:00.000+1400"}};
  for (const auto& [offset, text] : offsets) {
    zone->before = offset;
    EXPECT_EQ(ZRDateUtils::getLocalTime(), text);
  }
  clock_->setNow(Date{kStart + 0.001});
  EXPECT_EQ(ZRDateUtils::getGMTtime(), "2026-11-21T10:00:00.001Z");
  EXPECT_EQ(ZRDateUtils::getLocalTime(), "2026-11-22T00:00:00.001+1400");
  clock_->setNow(Date{std::numeric_limits<double>::quiet_NaN()});
  EXPECT_EQ(ZRDateUtils::getGMTtime(), "");
  zone->change = Date{kStart};
  zone->before = 7200;
  zone->after = 3600;
  const std::pair<const char*, double> moments[] = {{"2026-11-21T09:00:00Z", kStart - 10800},
                                                    {"2026-11-21T13:00:00Z", kStart + 7200}};
  for (const auto& [text, seconds] : moments) {
    const auto date = ZRDateUtils::getDateForStringWithFormatAndForGMTTimeZone(text, kZRDateFormatISO8601, false);
    EXPECT_EQ(date, Date{seconds}) << text;
    EXPECT_EQ(ZRDateUtils::getStringForDateWithFormatAndForGMTTimeZone(date, kZRDateFormatISO8601, false), text);
  }
  EXPECT_FALSE(ZRDateUtils::getStringForDateWithFormatAndForGMTTimeZone(std::nullopt, kZRDateFormatShort, true));
}

TEST(DateComparison, IsStrictAndFalseForAnAbsentDate) {
  const std::optional<Date> dates[] = {std::nullopt, Date{1}, Date{1.001}};
  for (int left = 0; left < 3; ++left) {
    for (int right = 0; right < 3; ++right) {
      EXPECT_EQ(ZRDateUtils::isDate1EarlierToDate2(dates[left], dates[right]), left == 1 && right == 2);
      EXPECT_EQ(ZRDateUtils::isDate1LaterToDate2(dates[left], dates[right]), left == 2 && right == 1);
    }
  }
}

TEST(DictionaryLookup, TreatsNullAsMissing) {
  Dictionary dictionary{{"a", Dictionary{{"b", Dictionary{{"c", 1}}}, {"n", null}}}, {"n", null}, {"a.b", "dotted"}};
  EXPECT_EQ(validObjectForKey(dictionary, "a.b"), "dotted");
  EXPECT_EQ(validObjectForKeyPath(dictionary, "a.b.c"), 1);
  for (const char* key : {"x", "n", ""}) EXPECT_TRUE(validObjectForKey(dictionary, key).isNil()) << key;
  for (const char* path : {"x", "n", "a.n", "a.n.x", "a.x.c", "a.b.c.d", "", ".", "a.", "a..b"}) {
    EXPECT_TRUE(validObjectForKeyPath(dictionary, path).isNil()) << path;
  }
}

class ThrowingSink final : public ZRLogSink {
 public:
  void logMessage(std::int64_t, const std::string&) override { throw 1; }
  void logError(const std::string&, std::int64_t, const std::string&, const std::string&,
                const std::vector<std::string>&) override {
    throw std::runtime_error("full");
  }
};

TEST_F(CoreTest, LoggerPassesMessagesOnAndCatchesWhatTheSinkThrows) {
  ZRLogger& logger = ZRLogger::sharedInstance();
  EXPECT_FALSE(logger.hasSink());
  logger.logWithTypeAndFormatArgs(1, Array{"nobody hears"});
  start();
  logger.logWithTypeAndFormatArgs(1, Array{"100%@"});
  logger.logErrorWithFormatArgsAndStackTrace(Array{"File", 7, "operation", "message"}, {});
  logger.logErrorWithFormatArgsAndStackTrace(Array{"File"}, {});
  logger.logErrorWithFormatArgsAndStackTrace(Array{"File", Array{}}, {});  // no line number: dropped
  EXPECT_EQ(log_->messages(), std::vector<std::string>{"100%@"});
  ASSERT_EQ(log_->errors().size(), 2u);
  EXPECT_EQ(log_->errors()[0].line, 7);
  EXPECT_EQ(log_->errors()[0].operation + ": " + log_->errors()[0].message, "operation: message");
  logger.setSink(std::make_shared<ThrowingSink>());
  EXPECT_NO_THROW(logger.logWithTypeAndFormatArgs(1, Array{"x"}));
  EXPECT_NO_THROW(logger.logErrorWithFormatArgsAndStackTrace(Array{"File", 7, "o", "m"}, {}));
}

TEST(AppDelegateInterceptors, AreCalledInOrderOnceTheDelegateIsProxied) {
  std::vector<std::shared_ptr<UIApplicationDelegate>> delegates(4);
  std::vector<ZRAppDelegateSwizzler::InterceptorID> ids;
  for (auto& delegate : delegates) {
    delegate = std::make_shared<UIApplicationDelegate>();
    ids.push_back(ZRAppDelegateSwizzler::registerAppDelegateInterceptor(delegate));
  }
  const auto called = [] {
    std::vector<UIApplicationDelegate*> all;
    ZRAppDelegateSwizzler::forEachInterceptor([&all](UIApplicationDelegate& delegate) {
      all.push_back(&delegate);
      throw std::runtime_error("must not stop the others");
    });
    return all;
  };
  using Delegates = std::vector<UIApplicationDelegate*>;
  EXPECT_EQ(called(), Delegates{});
  ZRAppDelegateSwizzler::proxyOriginalDelegate();
  delegates[1].reset();
  EXPECT_EQ(called(), (Delegates{delegates[0].get(), delegates[2].get(), delegates[3].get()}));
  for (int i = 0; i < 2; ++i) ZRAppDelegateSwizzler::unregisterAppDelegateInterceptorWithID(ids[0]);
  EXPECT_EQ(called(), (Delegates{delegates[2].get(), delegates[3].get()}));
}

}  // namespace
}  // namespace zorvane::testing
