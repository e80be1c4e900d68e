#include "ZRAnalytics/UserTest.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"

namespace zorvane::testing {
namespace {

class AnalyticsUtilsTest : public ModuleTest {};

TEST_F(AnalyticsUtilsTest, BatchIdentifierIsTheMillisecondAndAUUID) {
  clock_->setNow(Date{1700000000.1239});
  start();
  const std::string first = ZRAnalyticsUtils::createBatchIdentifier();
  ASSERT_EQ(first.size(), 13u + 1 + 36);
  EXPECT_EQ(first.substr(0, 14), "1700000000123-") << "truncated, not rounded";
  EXPECT_EQ(first.find_first_not_of("0123456789ABCDEF-"), std::string::npos);
  EXPECT_NE(ZRAnalyticsUtils::createBatchIdentifier(), first);
}

TEST_F(AnalyticsUtilsTest, SignatureIsTheUpperCaseDigestOfThePartsInOrder) {
  EXPECT_EQ(ZRAnalyticsUtils::sha1(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(ZRAnalyticsUtils::sha1("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(ZRAnalyticsUtils::getSignatureWithComponents({""}), "DA39A3EE5E6B4B0D3255BFEF95601890AFD80709");
  EXPECT_EQ(ZRAnalyticsUtils::getSignatureWithComponents({"a", "bc"}), "A9993E364706816ABA3E25717850C26C9CD0D89D");
  EXPECT_EQ(ZRAnalyticsUtils::getSignatureWithComponents({1, "-", 2.5, true}),
            ZRAnalyticsUtils::getSignatureWithComponents({"1-2.51"}));
}

TEST_F(AnalyticsUtilsTest, RequestIsSignedOnlyWithAllThreeParts) {
  const Dictionary meta{{"bid", "a"}, {"request_time", "b"}};
  const Dictionary query{{"unique_id", "c"}};
  const Dictionary complete{{"meta", meta}, {"query_params", query}, {"viewsInfo", Array{}}};
  EXPECT_EQ(ZRAnalyticsUtils::getRequestIDForPayload(&complete), "A9993E364706816ABA3E25717850C26C9CD0D89D");
  EXPECT_FALSE(ZRAnalyticsUtils::getRequestIDForPayload(nullptr));
  const Dictionary incomplete[] = {
      {},
      {{"meta", meta}},
      {{"meta", meta}, {"query_params", Dictionary{}}},
      {{"meta", meta}, {"query_params", Dictionary{{"unique_id", null}}}},
      {{"meta", meta}, {"query_params", "unique_id"}},
      {{"meta", Dictionary{{"bid", "a"}}}, {"query_params", query}},
      {{"meta", Dictionary{{"request_time", "b"}}}, {"query_params", query}},
      {{"meta.bid", "a"}, {"meta.request_time", "b"}, {"query_params", query}},
  };
  for (const Dictionary& payload : incomplete) {
    EXPECT_FALSE(ZRAnalyticsUtils::getRequestIDForPayload(&payload)) << Value(payload).description();
  }
}

TEST_F(AnalyticsUtilsTest, AdvertisingIdentifierNeedsServiceAndPermission) {
  inEarlierLaunch([this] {
    start();
    EXPECT_FALSE(ZRAnalyticsUtils::advertiserID());
    EXPECT_EQ(log_->messages(), std::vector<std::string>{"ADSupport Framework unavailable"});
  });
  const auto service = std::make_shared<FakeAdvertising>();
  host_.advertising = service;
  start();
  EXPECT_EQ(ZRAnalyticsUtils::advertiserID(), "IDFA-1");
  EXPECT_TRUE(log_->messages().empty());
  for (const int status : {0, 1, 2, 4}) {
    service->status = status;
    EXPECT_FALSE(ZRAnalyticsUtils::advertiserID()) << status;
  }
  EXPECT_EQ(log_->messages(),
            std::vector<std::string>(4, "ATTrackingManager trackingAuthorizationStatus is Not Authorized"));
  service->status.reset();
  EXPECT_EQ(ZRAnalyticsUtils::advertiserID(), "IDFA-1") << "an older platform does not ask the user";
  log_->clear();
  service->throws = true;  // whoever may not have the identifier does not ask for it
  service->isLimited = true;
  EXPECT_FALSE(ZRAnalyticsUtils::advertiserID());
  service->status = 0;
  EXPECT_FALSE(ZRAnalyticsUtils::advertiserID());
  service->isAvailable_ = false;
  EXPECT_FALSE(ZRAnalyticsUtils::advertiserID());
  EXPECT_EQ(log_->messages(),
            (std::vector<std::string>{"Limited ad tracking. Can't track advertising identifier",
                                      "ATTrackingManager trackingAuthorizationStatus is Not Authorized",
                                      "ADSupport Framework unavailable"}));
  EXPECT_TRUE(log_->errors().empty());
}

}  // namespace
}  // namespace zorvane::testing
