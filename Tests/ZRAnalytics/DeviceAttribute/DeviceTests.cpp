#include "Platform/Files/DefaultsStore.h"
#include "ZRAnalytics/DeviceAttribute/ZRDeviceAttributesHandler.h"
#include "ZRAnalytics/UserTest.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"

namespace zorvane::testing {
namespace {

class DeviceTest : public UserTest {
 protected:
  void SetUp() override { host_.advertising = advertising_; }
  void update() {
    facade().updateDeviceWithCompletion([this](bool success) { answers_.push_back(success); });
    settle();
  }
  // Removes the defaults and choices: as before the first launch.
  void forgetEverything() const {
    std::filesystem::remove(directory_ / "Defaults" / "sdk.plist");
    std::filesystem::remove(library("core.plist"));
  }
  static Dictionary body() { return facade().getDeviceAddRequestBody().value(); }
  static std::string deviceAttribute(const std::string& attributes) {
    return "EVENT_ACTION_DEVICE_ATTRIBUTE " + attributes;
  }
  std::shared_ptr<FakeAdvertising> advertising_ = std::make_shared<FakeAdvertising>();
  std::vector<bool> answers_;
};

TEST_F(DeviceTest, InstallOrUpdateIsTrackedOncePerVersion) {
  const struct {
    std::string stored;  // empty: none
    bool installRegistered;
    std::int64_t status;
    Names events;
  } cases[] = {
      {"", false, 0, {"INSTALL"}}, {"", true, 0, {}},     {"", false, 1, {"UPDATE"}},    {"", true, 7, {"UPDATE"}},
      {"2.0", false, 0, {}},       {"2.0", false, 1, {}}, {"1.9", false, 0, {"UPDATE"}}, {"1.9", true, 1, {"UPDATE"}},
  };
  for (const auto& [stored, installRegistered, status, expected] : cases) {
    inEarlierLaunch([&, stored = stored, registered = installRegistered, status = status, expected = expected] {
      startWithSession({{"app_version", "2.0"}});
      if (registered) ZRCoreUtils::registerInstall();
      if (!stored.empty()) ZRCoreUtils::getSDKUserDefault().setObjectForKey(stored, "ZRV_App_Version_App_Status");
      facade().appStatus(status);
      facade().appStatus(status);
      EXPECT_EQ(recorded(), expected) << stored << " " << registered << " " << status;
      EXPECT_EQ(kept("ZRV_App_Version_App_Status"), Value("2.0"));
      EXPECT_EQ(ZRCoreUtils::installRegistered(), registered || expected == Names{"INSTALL"});
    });
    forgetEverything();
  }
  startWithSession({{"account_active", false}});
  facade().appStatus(0);
  EXPECT_EQ(kept("ZRV_App_Version_App_Status"), Value());
}

TEST_F(DeviceTest, FirstSDKVersionTracksAReinstallationOfAKnownDevice) {
  const struct {
    std::string stored;
    bool deviceKnown;
    Names events;
  } cases[] = {{"", true, {"REINSTALL silent"}}, {"", false, {}}, {"3.0", true, {}}, {"2.9", true, {}}};
  for (const auto& [stored, deviceKnown, expected] : cases) {
    inEarlierLaunch([&, stored = stored, known = deviceKnown, expected = expected] {
      startWithSession({{"sdk_version", "3.0"}, {"device_id_in_secure_store", known}});
      if (!stored.empty()) ZRCoreUtils::getSDKUserDefault().setObjectForKey(stored, kUserDefaultsKeySDKVersion);
      facade().trackSDKVersion();
      facade().trackSDKVersion();
      EXPECT_EQ(recorded(), expected) << stored;
      EXPECT_EQ(kept(kUserDefaultsKeySDKVersion), Value("3.0"));
    });
    forgetEverything();
  }
}

TEST_F(DeviceTest, RegistrationIdentifiesTheDeviceAndIsSigned) {
  startWithSession({{"unique_id", "U"}, {"idfv", "V"}, {"push_enabled", false}});
  update();
  ASSERT_EQ(service_->requests().size(), 1u);
  const auto request = service_->requests()[0];
  EXPECT_EQ(request.url, "http://service.test/v1/device/APP");
  const Dictionary meta = *request.body.asDictionary()->objectForKey("meta").asDictionary();
  const std::string bid = meta.objectForKey("bid").description();
  EXPECT_EQ(
      request.body,
      (Dictionary{{"IDFV", "V"},
                  {"ADVERTISING_IDENTIFIER", "IDFA-1"},
                  {"meta", Dictionary{{"dev_pref", Dictionary{{"e_t_p", true}, {"push_p", false}, {"in_app_p", true}}},
                                      {"request_time", "2026-11-21T10:00:00.000Z"},
                                      {"bid", bid}}},
                  {"query_params", Dictionary{{"unique_id", "U"}}}}));
  EXPECT_EQ(request.header("ZRV-REQUEST-ID"),
            ZRAnalyticsUtils::getSignatureWithComponents({bid, "2026-11-21T10:00:00.000Z", "U"}));
  EXPECT_NE(body().objectForKey("meta"), Value(meta)) << "a new batch identifier for each request";

  const struct {
    Dictionary configuration;
    bool idfv, idfa;
  } cases[] = {{{{"idfv_tracking_enabled", false}}, false, true},
               {{{"idfa_tracking_enabled", false}}, true, false},
               {{{"data_tracking_enabled", false}}, false, false},
               {{{"idfv", ""}}, false, true}};
  for (const auto& [configuration, idfv, idfa] : cases) {
    const Dictionary before = effectiveConfiguration();
    updateRemoteConfiguration(configuration);
    EXPECT_EQ(body().contains("IDFV"), idfv) << Value(configuration).description();
    EXPECT_EQ(body().contains("ADVERTISING_IDENTIFIER"), idfa) << Value(configuration).description();
    EXPECT_TRUE(body().contains("meta") && body().contains("query_params"));
    for (const auto& [key, value] : configuration) updateRemoteConfiguration({{key, before.objectForKey(key)}});
  }
  advertising_->identifier = "";
  EXPECT_FALSE(body().contains("ADVERTISING_IDENTIFIER"));
}

TEST_F(DeviceTest, RegistrationCountsAsFailedUntilItIsAccepted) {
  startWithSession();
  service_->hold = true;
  update();
  EXPECT_EQ(kept(kUserDefaultsKeyHasDeviceAddFailed), Value(true)) << "set before the request is sent";
  EXPECT_NE(defaultsFile().find(kUserDefaultsKeyHasDeviceAddFailed), std::string::npos) << "a killed launch repeats it";
  service_->answerNext(500);
  EXPECT_EQ(kept(kUserDefaultsKeyHasDeviceAddFailed), Value(true));
  update();
  service_->answerNext(200);
  EXPECT_EQ(kept(kUserDefaultsKeyHasDeviceAddFailed), Value(false));
  EXPECT_EQ(answers_, (std::vector<bool>{false, true}));

  for (const int status : {500, 200}) {
    facade().pushTokenUpdated();
    service_->answerNext(status);
    EXPECT_EQ(log_->has("Device Add on PushToken successful."), status == 200);
  }
  service_->hold = false;
  service_->decide = [](const auto&) -> int { throw std::runtime_error("no radio"); };
  update();
  EXPECT_TRUE(
      reportedError("ZRAnalyticsDevice", "updateDeviceWithCompletion", "Exception in device add call no radio"));
  EXPECT_EQ(kept(kUserDefaultsKeyHasDeviceAddFailed), Value(true));
}

TEST_F(DeviceTest, WithoutARequestNothingCompletes) {
  const struct {
    Dictionary configuration;
    std::string appID;
    bool marked;
    Names log;
  } cases[] = {
      {{{"account_active", false}}, "APP", false, {"updateDeviceWithCompletion: SDK Blocked"}},
      {{{"sdk_enabled", false}}, "APP", false, {"updateDeviceWithCompletion: SDK Blocked"}},
      {{}, "", false, {"updateDeviceWithCompletion: App ID is not present."}},
      {{{"unique_id", null}}, "APP", true, {}},
      {{{"query_params", null}}, "APP", true, {"Query Params are nil", "Device Add request not made as Body is nil"}},
  };
  for (const auto& item : cases) {
    inEarlierLaunch([&] {
      startWithSession(item.configuration, item.appID);
      update();
      EXPECT_EQ(log_->messages(), item.log);
      EXPECT_EQ(kept(kUserDefaultsKeyHasDeviceAddFailed), item.marked ? Value(true) : Value());
      EXPECT_TRUE(answers_.empty());
      EXPECT_TRUE(service_->requests().empty());
    });
    forgetEverything();
  }
}

TEST_F(DeviceTest, AdvertisingIdentifierIsSentWhenItChanges) {
  startWithSession();
  const auto track = [this] {
    facade().trackAdvertisingIdentifier();
    return recorded();
  };
  const auto both = [](const std::string& id) {
    const std::string pair = R"({"ADVERTISING_IDENTIFIER":")" + id + "\"}";
    // The user attribute passes one more queue.
    return Names{deviceAttribute(pair), userAttribute(pair)};
  };
  EXPECT_EQ(facade().getTrackedIDFA(), Value());
  facade().initializeAnalytics();
  EXPECT_EQ(recorded(), both("IDFA-1"));
  EXPECT_NE(defaultsFile().find("IDFA-1"), std::string::npos);
  EXPECT_EQ(track(), Names{});
  updateRemoteConfiguration({{"idfa_tracking_enabled", false}});
  advertising_->identifier = "IDFA-2";
  EXPECT_EQ(track(), Names{});
  updateRemoteConfiguration({{"idfa_tracking_enabled", true}});
  EXPECT_EQ(track(), both("IDFA-2"));
  advertising_->identifier = std::nullopt;
  EXPECT_EQ(track(), Names{});
  EXPECT_EQ(facade().getTrackedIDFA(), Value("IDFA-2"));
}

TEST_F(DeviceTest, DeviceAttributesAreSentAtEachCall) {
  startWithSession();
  auto& device = ZRDeviceAttributesHandler::sharedInstance();
  for (const Value& value : {Value("x"), Value("x"), Value(1), Value(true)})
    device.setDeviceAttributeForKey(value, "a");
  EXPECT_EQ(recorded(), (Names{deviceAttribute(R"({"a":"x"})"), deviceAttribute(R"({"a":"x"})"),
                               deviceAttribute(R"({"a":1})"), deviceAttribute(R"({"a":true})")}));
  log_->clear();
  for (const Value& value : {Value(Date{1}), Value(Array{}), Value(null), Value()}) {
    device.setDeviceAttributeForKey(value, "a");
  }
  EXPECT_EQ(log_->messages(), (Names{"The attribue value should be either of string, integer or bool",
                                     "The attribue value should be either of string, integer or bool",
                                     "The attribue value should be either of string, integer or bool",
                                     "Tried setting nil user attribute for key a"}));
  device.setDeviceAttributeForKey("x", nullptr);
  EXPECT_TRUE(reportedError("ZRDeviceAttributesHandler", "setDeviceAttributeForKey",
                            "exception is a device attribute needs a name"));
  setSDKEnabled(false);
  device.setDeviceAttributeForKey(Value(), "a");
  EXPECT_EQ(log_->messages().size(), 4u);
  setSDKEnabled(true);
  EXPECT_EQ(recorded(), Names{});
}

TEST_F(DeviceTest, VendorIdentifierIsTheFourthModelAttributeUnlessOptedOut) {
  startWithSession({{"device_model", "m"}, {"device_name", "n"}, {"os_version", "o"}, {"idfv", "v"}});
  const Names four{deviceAttribute(R"({"device_model":"m"})"), deviceAttribute(R"({"device_model_name":"n"})"),
                   deviceAttribute(R"({"os_version":"o"})"), deviceAttribute(R"({"device_IDFV":"v"})")};
  facade().setDeviceModelAttributes();
  EXPECT_EQ(recorded(), four);
  updateRemoteConfiguration({{"idfv_tracking_enabled", false}});
  facade().setDeviceModelAttributes();
  EXPECT_EQ(recorded(), Names(four.begin(), four.end() - 1));
  updateRemoteConfiguration(
      {{"data_tracking_enabled", false}, {"whitelisted_events", Array{"EVENT_ACTION_DEVICE_ATTRIBUTE"}}});
  facade().setDeviceModelAttributes();
  EXPECT_EQ(recorded(), Names{});
}

}  // namespace
}  // namespace zorvane::testing
