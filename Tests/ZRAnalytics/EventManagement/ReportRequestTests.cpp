#include <cstdlib>

#include "Platform/Formats/JSON.h"
#include "Platform/Formats/PropertyList.h"
#include "ZRAnalytics/EventManagement/EventPipelineTest.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/ZRCoreConstants.h"

namespace zorvane::testing {
namespace {

class ReportRequestTest : public EventPipelineTest {
 protected:
  static inline const Array kEvents{Dictionary{{"EVENT_ACTION", "a"}}, Dictionary{{"EVENT_ACTION", "b"}}};
  static inline const Dictionary kBatch{{"events", kEvents}, {"batch_id", "7-X"}, {"request_time", "T"}};

  static Dictionary metaOf(const Dictionary& batch) {
    const Value meta = events().reportAddPayloadForBatchInfo(batch).objectForKey("meta");
    return meta.isDictionary() ? *meta.asDictionary() : Dictionary();
  }
};

TEST_F(ReportRequestTest, BodyHoldsTheEventsTheirCountTheMetaAndTheQueryParameters) {
  startWithSession({{"unique_id", "U"}, {"query_params", Dictionary{{"os", "ios"}}}});
  EXPECT_EQ(events().reportAddPayloadForBatchInfo(kBatch),
            (Dictionary{{"viewsInfo", kEvents},
                        {"viewsCount", 2},
                        {"meta", Dictionary{{"request_time", "T"}, {"bid", "7-X"}}},
                        {"query_params", Dictionary{{"unique_id", "U"}, {"os", "ios"}}}}));

  Dictionary batch = kBatch;
  batch.set("session", Dictionary{{"session_id", "S"}});
  batch.set("source", Array{Dictionary{{"source", "mail"}}});
  ZRCoreUtils::getSDKUserDefault().setObjectForKey(true, kUserDefaultsKeyHasDeviceAddFailed);
  updateRemoteConfiguration({{"push_enabled", false}});
  EXPECT_EQ(metaOf(batch), (Dictionary{{"request_time", "T"},
                                       {"bid", "7-X"},
                                       {"dev_pref", Dictionary{{"push_p", false}}},
                                       {"session", Dictionary{{"session_id", "S"}}},
                                       {"source", Array{Dictionary{{"source", "mail"}}}},
                                       {"dev_add_res", "failure"}}));
  ZRCoreUtils::getSDKUserDefault().setObjectForKey(false, kUserDefaultsKeyHasDeviceAddFailed);
  updateRemoteConfiguration({{"data_tracking_enabled", false}, {"in_app_enabled", false}});
  const Dictionary meta = metaOf(kBatch);
  EXPECT_EQ(meta.objectForKey("dev_pref"), Value(Dictionary{{"e_t_p", false}, {"push_p", false}, {"in_app_p", false}}));
  EXPECT_NE(meta.objectForKey("dev_pref").asDictionary()->objectForKey("push_p").asBool(), nullptr);
  EXPECT_FALSE(meta.contains("dev_add_res"));
}

TEST_F(ReportRequestTest, MissingPartLeavesMetaAndParametersOut) {
  startWithSession();
  const Dictionary rest{{"viewsInfo", kEvents}, {"viewsCount", 2}};
  EXPECT_EQ(events().reportAddPayloadForBatchInfo({{"events", kEvents}, {"batch_id", "7-X"}}), rest);
  EXPECT_EQ(events().reportAddPayloadForBatchInfo({{"events", kEvents}, {"request_time", "T"}}), rest);
  updateRemoteConfiguration({{"unique_id", null}});
  EXPECT_EQ(events().reportAddPayloadForBatchInfo(kBatch), rest);
  EXPECT_EQ(events().reportAddPayloadForBatchInfo({}), (Dictionary{{"viewsCount", 0}}));
  updateRemoteConfiguration({{"unique_id", "U"}, {"query_params", null}});
  const Dictionary body = events().reportAddPayloadForBatchInfo(kBatch);
  EXPECT_TRUE(body.contains("meta"));
  EXPECT_FALSE(body.contains("query_params"));
}

TEST_F(ReportRequestTest, RequestIsSignedOverBatchTimeAndUser) {
  startWithSession({{"unique_id", "U"}});
  save({"a"});
  const std::string id = idOf(0);
  updateRemoteConfiguration({{"whitelisted_events", Array{}}});
  Answers answers;
  flush(answers);
  settle();
  ASSERT_EQ(service_->requests().size(), 1u);
  const auto request = service_->requests()[0];
  EXPECT_EQ(request.url, "http://service.test/v1/report/APP");
  EXPECT_EQ(request.header("ZRV-REQUEST-ID"),
            ZRAnalyticsUtils::getSignatureWithComponents({id, "2026-11-21T10:00:01.000Z", "U"}));
}

TEST_F(ReportRequestTest, BatchOfAClockBeyondTheYear9999GoesWithoutATime) {
  startWithSession();
  clock_->advance(253402300800 - kStart);
  save({"a"});
  Answers answers;
  flush(answers);
  settle();
  ASSERT_EQ(sentNames(), (Batches{{"a"}}));
  EXPECT_FALSE(service_->requests()[0].body.asDictionary()->contains("meta"));
}

// docs/formats.md shows a request. Its events are recorded and its batch is sent here.
TEST_F(ReportRequestTest, TheDocumentedRequestIsTheOneThatIsSent) {
  std::string text = readAll(std::string(ZR_SOURCE_DIR) + "/docs/formats.md");
  text = text.substr(text.find("```http\n") + 8);
  text = text.substr(0, text.find("```"));
  const std::string head = text.substr(0, text.find("\n\n"));
  const auto documented = platform::parseJSON(text.substr(head.size()));
  ASSERT_TRUE(documented);
  const Dictionary& body = *documented.value().asDictionary();
  const Array& records = *body.objectForKey("viewsInfo").asArray();
  const Dictionary meta = *body.objectForKey("meta").asDictionary();

  setenv("TZ", "IST-5:30", 1);
  startWithSession({{"push_enabled", false}, {"query_params", body.objectForKey("query_params")}}, "SHOP 1");
  updateRemoteConfiguration({{"unique_id", "5C1B7D0E-2F4A-4E7B-8D93-1A6F0C4E2B75"}});
  ZRAnalytics::sharedInstance().setUserAttributeForKey("ingrid@shop.example", "USER_ATTRIBUTE_UNIQUE_ID");
  settle();
  EXPECT_EQ(events().viewsInfoArray(), (Array{records[1]}));
  const auto properties = ZRProperties::initWithAttributes(
      {{"price", 10.5}, {"count", 2}, {"gift", true}, {"sku", "A1"}, {"tags", Array{"new", "blue"}}});
  properties->addDateEpochAttributeWithName(kStart + 3 * 86400, "delivery");
  properties->addLocationAttributeWithName(ZRGeoLocation::initWithLatitudeAndLongitude(12.971599, 77.594563), "shop");
  EXPECT_EQ(Value(events().getEventDictForEventAndProperties("Purchase", properties.get())), records[0]);

  events().clearEventsdata();
  const Value id = meta.objectForKey("bid");
  const Dictionary batch{{"events", records},
                         {"batch_id", id},
                         {"request_time", meta.objectForKey("request_time")},
                         {"session", meta.objectForKey("session")},
                         {"source", meta.objectForKey("source")}};
  writeAll(batchPath(), platform::binaryPropertyList(Dictionary{{id.description(), batch}}));
  Answers answers;
  flush(answers);
  settle();
  ASSERT_EQ(service_->requests().size(), 1u);
  const auto request = service_->requests()[0];
  EXPECT_EQ(request.body, documented.value());
  EXPECT_NE(head.find("POST " + request.url.substr(std::string("http://service.test").size()) + " "), head.npos)
      << head;
  EXPECT_NE(head.find("ZRV-REQUEST-ID: " + request.header("ZRV-REQUEST-ID")), head.npos) << head;
}

TEST_F(ReportRequestTest, StoredBatchIsSentAsItStandsInTheFile) {
  startWithSession({{"unique_id", "U"}});
  Dictionary sound = kBatch;
  sound.set("session", Dictionary{{"session_id", "S"}});
  sound.set("source", Array{});
  const Dictionary eventless{{"batch_id", "8-X"}, {"request_time", "T"}};
  writeAll(batchPath(), platform::binaryPropertyList(Dictionary{{"7-X", sound}, {"8-X", eventless}}));
  Answers answers;
  flush(answers);
  settle();
  const auto requests = service_->requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].body, Value(events().reportAddPayloadForBatchInfo(sound)));
  EXPECT_EQ(requests[1].body, Value(events().reportAddPayloadForBatchInfo(eventless)));
}

}  // namespace
}  // namespace zorvane::testing
