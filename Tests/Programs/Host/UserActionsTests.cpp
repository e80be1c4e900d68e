// Actions about the user, the device and the application's state, as the service and the trace see them.

#include <future>

#include "ZRHostFixture.h"

namespace {

using testing::ElementsAre;

// "NAME attributes custom-attributes" of the record; absent parts are left out.
std::string told(const Json& record) {
  std::string text = record.at("EVENT_ACTION");
  for (const char* part : {"EVENT_ATTRS", "EVENT_ATTRS_CUST"}) {
    if (record.contains(part)) text += " " + record.at(part).dump();
  }
  return text;
}

std::vector<std::string> tasksIn(const std::vector<Json>& trace) {
  std::vector<std::string> tasks;
  for (const Json& line : trace) {
    if (line.at("t") != "task") continue;
    tasks.push_back(line.at("phase").get<std::string>() + " " + line.at("name").get<std::string>() + " " +
                    line.at("id").dump() + (line.contains("main") ? " main" : ""));
  }
  return tasks;
}

TEST_F(ZRHost, UserAndDeviceActionsBecomeEvents) {
  const std::string kUser = "EVENT_ACTION_USER_ATTRIBUTE ";
  const std::string kDevice = "EVENT_ACTION_DEVICE_ATTRIBUTE ";
  const struct {
    std::string line;
    std::vector<std::string> events;
  } cases[] = {
      {R"({"do": "launch"})", {"EVENT_ACTION_IOS_SESSION_START"}},
      {R"({"do": "attribute", "key": "age", "value": 7})", {kUser + R"({"age":7})"}},
      {R"({"do": "attribute", "key": "age", "value": 7})", {}},
      {R"({"do": "attribute", "key": "none"})", {}},
      {R"({"do": "attribute", "key": "born", "date": "2001-02-03T04:05:06Z"})",
       {kUser + R"({"timestamp":[{"born":981173106000.0}]})"}},
      {R"({"do": "attribute", "key": "seen", "timestamp": 1.5})", {kUser + R"({"timestamp":[{"seen":1500.0}]})"}},
      {R"({"do": "attribute", "key": "home", "location": [59.9, 10]})",
       {kUser + R"({"location":[{"home":"59.900000,10.000000"}]})"}},
      {R"({"do": "uniqueID", "value": " ann\t"})", {kUser + R"({"USER_ATTRIBUTE_UNIQUE_ID":"ann"})"}},
      {R"({"do": "alias", "value": 42})",
       {kUser + R"({"USER_ATTRIBUTE_UNIQUE_ID":"42","USER_ID_MODIFIED_FROM":"ann"})"}},
      {R"({"do": "pushPreference", "value": false})", {kUser + R"({"USER_PUSH_PREFERENCE":false})"}},
      {R"({"do": "pushConsent", "key": "ZORVANE_PUSH_OPTED_OUT", "value": true})",
       {kUser + R"({"ZORVANE_PUSH_OPTED_OUT":true})"}},
      {R"({"do": "deviceAttribute", "key": "memory", "value": 4.5})", {kDevice + R"({"memory":4.5})"}},
      {R"({"do": "deviceModel"})",
       {kDevice + R"({"device_model":"M1"})", kDevice + R"({"device_model_name":""})",
        kDevice + R"({"os_version":"9"})", kDevice + R"({"device_IDFV":"V"})"}},
      {R"({"do": "optOutEvents"})", {}},
      {R"({"do": "appStatus", "status": 0})", {"INSTALL"}},
      {R"({"do": "appStatus", "status": 0, "version": "2.0"})", {"UPDATE"}},
      {R"({"do": "sdkVersion", "version": "3.1"})", {"REINSTALL"}},
      {R"({"do": "sdkVersion"})", {}},
  };
  HostProcess host(
      arguments({"--quiet", "--config", fileWith("config", R"({"device_model": "M1", "os_version": "9", "idfv": "V",
                                                     "device_id_in_secure_store": true})")}),
      directory_.file("stderr"));
  std::size_t before = 0;
  for (const auto& [line, events] : cases) {
    host.write(line);
    host.write(R"({"do": "print", "what": "currentBatch"})");
    const Json batch = host.readLine().at("value");
    std::vector<std::string> fresh;
    for (; before < batch.size(); ++before) fresh.push_back(told(batch[before]));
    EXPECT_EQ(fresh, events) << line;
  }
  host.write(R"({"do": "print", "what": "identifiers"})");
  EXPECT_EQ(host.readLine().at("value"), (Json{{"zrv_user_id", "42"}}));
  host.write(R"({"do": "print", "what": "userAttributes"})");
  const char* const now = "2026-11-21T10:00:00.000Z";
  EXPECT_EQ(host.readLine().at("value"),
            Json::array({{{"name", "age"}, {"value", 7}, {"lastTracked", now}},
                         {{"name", "USER_ATTRIBUTE_UNIQUE_ID"}, {"value", "42"}, {"lastTracked", now}},
                         {{"name", "USER_PUSH_PREFERENCE"}, {"value", false}, {"lastTracked", now}}}));
  EXPECT_EQ(host.finish().status, 0);
}

TEST_F(ZRHost, TheConfiguredLocaleIsToldInItsOwnLanguage) {
  const struct {
    const char* locale;
    const char* country;
    const char* language;
    const char* identifier;
    const char* names;  // country, language, locale
  } cases[] = {
      {"de_AT.UTF-8", "AT", "de", "de_AT", "Österreich|Deutsch|Deutsch (Österreich)"},
      {"sr-Latn", "", "sr", "sr_Latn", "|srpski|srpski (latinica)"},
      {"qq_AA", "AA", "qq", "qq_AA", ""},
  };
  for (const auto& c : cases) {
    const HostResult result = run({R"({"do": "config", "set": {"locale": ")" + std::string(c.locale) + "\"}}",
                                   R"({"do": "locale"})", R"({"do": "print", "what": "userAttributes"})"});
    Json known = Json::object();
    const Json attributes = result.values().at(0);
    for (const Json& attribute : attributes) known[attribute.at("name")] = attribute.at("value");
    EXPECT_EQ(known.value("LOCALE_COUNTRY", ""), c.country) << c.locale;
    EXPECT_EQ(known.value("LOCALE_LANGUAGE", ""), c.language) << c.locale;
    EXPECT_EQ(known.value("LOCALE_IDENTIFIER", ""), c.identifier) << c.locale;
#ifdef ZR_HAS_ICU
    if (!*c.names) continue;
    EXPECT_EQ(known.value("LOCALE_COUNTRY_DISPLAY", "") + "|" + known.value("LOCALE_LANGUAGE_DISPLAY", "") + "|" +
                  known.value("LOCALE_DISPLAY", ""),
              c.names);
#endif
  }
}

TEST_F(ZRHost, ChoicesAreKeptOverALaunch) {
  const std::vector<std::string> configured =
      arguments({"--config", fileWith("config", R"({"idfv": "V", "idfa": "A"})")});
  run({R"({"do": "launch"})", R"({"do": "optOut", "what": "idfv", "value": true})",
       R"({"do": "optOut", "what": "idfa", "value": true})", R"({"do": "updateDevice"})",
       R"({"do": "optOut", "what": "data", "value": true})", R"({"do": "interval", "seconds": 20})",
       R"({"do": "sdkState", "enabled": false})"},
      configured);
  const HostResult result =
      run({R"({"do": "launch"})", R"({"do": "track", "event": "lost"})",
           R"({"do": "config", "set": {"event_batch_count": 7}})", R"({"do": "print", "what": "config"})",
           R"({"do": "sdkState", "enabled": true})", R"({"do": "optOut", "what": "data", "value": false})",
           R"({"do": "optOut", "what": "idfa", "value": false})", R"({"do": "appID", "value": "NEW"})",
           R"({"do": "updateDevice"})", R"({"do": "track", "event": "kept"})", R"({"do": "flush"})"},
          configured);
  const Json config = result.values().at(0);
  for (const char* key : {"data_tracking_enabled", "idfv_tracking_enabled", "idfa_tracking_enabled", "sdk_enabled"}) {
    EXPECT_EQ(config.at(key), false) << key;
  }
  EXPECT_EQ(config.at("event_batch_count"), 7);
  EXPECT_EQ(config.at("periodic_flush_duration"), 20);
  EXPECT_THAT(result.output,
              testing::IsSupersetOf({Json{{"completion", "appID"}, {"line", 8}},
                                     Json{{"completion", "updateDevice"}, {"line", 9}, {"success", true}}}));
  EXPECT_THAT(service_.acceptedEvents(), ElementsAre("kept"));
  EXPECT_EQ(service_.paths().back(), "/v1/report/NEW");
  std::vector<std::string> identifiers;
  for (const Json& body : service_.bodies()) {
    if (body.contains("viewsInfo")) continue;
    identifiers.push_back(body.value("IDFV", "-") + body.value("ADVERTISING_IDENTIFIER", "-") +
                          body.at("meta").at("dev_pref").at("e_t_p").dump());
  }
  EXPECT_THAT(identifiers, ElementsAre("--true", "--false", "--true", "-Atrue"));
}

TEST_F(ZRHost, ExpirationEndsTheTaskBeforeItsWorkDoes) {
  const std::string trace = directory_.file("trace");
  std::promise<void> mayAnswer;
  service_.answerWith([answer = mayAnswer.get_future().share()](const Json&) { return answer.wait(), 200; });
  HostProcess host(arguments({"--quiet", "--trace", trace}), directory_.file("stderr"));
  host.write(R"({"do": "launch"})");
  host.write(R"({"do": "inactive", "async": true})");
  host.write(R"({"do": "expire", "name": "ZRVTask", "async": true})");
  host.write(R"({"do": "print", "what": "session", "async": true})");
  host.readLine();
  mayAnswer.set_value();
  host.write(R"({"do": "settle"})");
  host.write(R"({"do": "terminate"})");
  EXPECT_EQ(host.finish().status, 0);
  EXPECT_THAT(tasksIn(linesOf(trace)),
              ElementsAre("begin ZRVTask 1 main", "expire ZRVTask 1 main", "end ZRVTask 1 main", "end ZRVTask 1",
                          "begin bg_zrv_app_exit 2 main", "end bg_zrv_app_exit 2"));
}

TEST_F(ZRHost, AConditionIsAskedOfTheRecordThatTriggersSee) {
  const std::string condition =
      R"({"do": "condition", "condition": {"eventName": "Purchase", "filters": [)"
      R"({"name": "sku", "data_type": "string", "operator": "is", "value": "3cff"},)"
      R"({"name": "delivery", "data_type": "datetime", "operator": "inTheNext", "value_type": "relative_future",)"
      R"( "value": 3}]}, )";
  const HostResult result = run({
      condition +
          R"("event": "Purchase", "attributes": {"sku": "3CFF"}, "dates": {"delivery": "2026-11-23T10:00:00Z"}})",
      condition + R"("event": "Purchase", "attributes": {"sku": "3CFF"}, "dates": {"delivery": 1795600800}})",
      condition + R"("event": "Other", "attributes": {"sku": "3CFF"}, "dates": {"delivery": "2026-11-23T10:00:00Z"}})",
      condition + R"("attributes": {"sku": "3CFF"}})",
      R"({"do": "condition", "event": "Purchase"})",
  });
  EXPECT_THAT(result.values(), ElementsAre(true, false, false, false));
  EXPECT_EQ(result.output.front(), Json::parse(R"({"line": 1, "value": true})"));
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.errors, testing::HasSubstr("line 5: \"condition\" is missing"));
}

}  // namespace
