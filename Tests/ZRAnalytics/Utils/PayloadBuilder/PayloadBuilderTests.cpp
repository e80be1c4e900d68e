#include "ZRAnalytics/Utils/PayloadBuilder/ZRPayloadBuilder.h"

#include <cmath>

#include "ZRAnalytics/EventManagement/EventPipelineTest.h"
#include "ZRAnalytics/ZRAnalytics.h"

namespace zorvane::testing {
namespace {

class PayloadBuilderTest : public EventPipelineTest {
 protected:
  PayloadBuilderTest() { startWithSession(); }
  bool isEmpty() {
    return builder_.eventDict()->empty() && builder_.timeStampArray().empty() && builder_.locationArray().empty();
  }

  ZRPayloadBuilder builder_;
};

TEST_F(PayloadBuilderTest, ReservedKeyIsRemovedFromACopyAndOnlyOneSetsTheFlag) {
  const std::pair<Value, bool> cases[] = {{1, true}, {"1", true}, {0, false}, {2, false}, {"yes", false}};
  for (const auto& [value, flag] : cases) {
    const auto given = std::make_shared<Dictionary>(Dictionary{{"a", 1}, {"zrv_non_interactive", value}, {"b", 2}});
    const auto builder = ZRPayloadBuilder::initWithDictionary(given);
    EXPECT_EQ(builder->isNonInteractive(), flag) << value.description();
    EXPECT_EQ(*builder->eventDict(), (Dictionary{{"a", 1}, {"b", 2}})) << value.description();
    EXPECT_EQ(given->size(), 3u) << "the caller's dictionary does not change";
    EXPECT_EQ(builder->getProperties()->isNonInteractiveEvent(), flag);
  }
}

TEST_F(PayloadBuilderTest, LaterChangesOfTheCallersDictionaryCount) {
  const auto given = std::make_shared<Dictionary>(Dictionary{{"a", 1}});
  const auto builder = ZRPayloadBuilder::initWithDictionary(given);
  given->set("b", 2);
  given->set("zrv_non_interactive", 1);
  const auto properties = builder->getProperties();
  EXPECT_EQ(properties->getAttributesDict(), (Dictionary{{"a", 1}, {"b", 2}}));
  EXPECT_TRUE(properties->isNonInteractiveEvent()) << "read by the properties";
  EXPECT_FALSE(builder->isNonInteractive());
  EXPECT_TRUE(ZRPayloadBuilder::initWithDictionary(std::shared_ptr<Dictionary>())->eventDict()->empty());
  EXPECT_TRUE(ZRPayloadBuilder::initWithDictionary({})->eventDict()->empty());
  EXPECT_TRUE(ZRProperties::initWithAttributes(nullptr)->getAttributesDict().empty());
  builder->setEventDict(nullptr);
  EXPECT_EQ(builder->getProperties()->getAttributesDict(), Dictionary());
}

TEST_F(PayloadBuilderTest, DatesKeepTheirTwoScalesAtEachConversion) {
  builder_.eventDict()->set("plain", 10.5);
  builder_.eventDict()->set("day", Date{1.5});
  builder_.eventDict()->set("spot", ZRGeoLocation::initWithLatitudeAndLongitude(0, 0));
  builder_.setTimeStampForKey(1.5, "stamp");
  builder_.setDateForKey(Date{1.5}, "date");
  builder_.setDateISOStringForKey("1970-01-01T00:00:02Z", "iso");
  builder_.setDateISOStringForKey("1970-01-01T00:00:02.250Z", "iso");
  builder_.setDateForKey(Date{0}, "zero");
  builder_.setLocationLatLngForKey(12.971599, 77.594563, "place");
  builder_.setNonInteractive();
  for (int round = 0; round < 2; ++round) {
    const auto properties = builder_.getProperties();
    EXPECT_EQ(properties->getAttributesDict(), (Dictionary{{"plain", 10.5}}));
    EXPECT_EQ(properties->getDateTimeAttributesArray(),
              (Array{Dictionary{{"day", 1500}}, Dictionary{{"stamp", 1500}}, Dictionary{{"date", 1500000}},
                     Dictionary{{"iso", 2000000}}, Dictionary{{"iso", 2250000}}, Dictionary{{"zero", 0}}}));
    EXPECT_EQ(properties->getLocationAttributesArray(),
              (Array{Dictionary{{"spot", "0.000000,0.000000"}}, Dictionary{{"place", "12.971599,77.594563"}}}));
    EXPECT_TRUE(properties->isNonInteractiveEvent());
  }
}

TEST_F(PayloadBuilderTest, MissingAndZeroValuesAreRefusedAndLogged) {
  const std::string date = "Trying to set date for key while one of them is nil";
  const std::string iso = "Trying to set ISO date for key while one of them is nil";
  const std::string stamp = "Trying to set timestamp for key while one of them is nil";
  const std::string place = "Trying to set lat long and key while one of them is nil";
  builder_.setDateForKey(std::nullopt, "a");
  builder_.setDateForKey(Date{1}, nullptr);
  builder_.setDateISOStringForKey(nullptr, "a");
  builder_.setDateISOStringForKey("1970-01-01T00:00:02Z", nullptr);
  builder_.setDateISOStringForKey("1970-01-01", "a");
  builder_.setTimeStampForKey(0, "a");
  builder_.setTimeStampForKey(1, nullptr);
  builder_.setLocationLatLngForKey(0, 1, "a");
  builder_.setLocationLatLngForKey(1, 0, "a");
  builder_.setLocationLatLngForKey(1, 1, nullptr);
  EXPECT_TRUE(isEmpty());
  EXPECT_EQ(log_->messages(), (Names{date, date, iso, iso,
                                     "Date attribute value(1970-01-01) tracked with wrong format. Valid format is: "
                                     "yyyy-MM-dd'T'HH:mm:ss'Z'",
                                     stamp, stamp, place, place, place}));
  log_->clear();
  builder_.setTimeStampForKey(std::nan(""), "nan");
  builder_.setTimeStampForKey(1, "");
  EXPECT_EQ(builder_.timeStampArray().size(), 2u) << "not a number, and an empty key, are taken";
  EXPECT_TRUE(log_->messages().empty());
}

TEST_F(PayloadBuilderTest, ExceptionCostsOnlyItsCallAndIsReported) {
  builder_.setDateForKey(Date{1}, 5);
  builder_.setDateISOStringForKey(1, "a");
  builder_.setTimeStampForKey(1, null);
  builder_.setLocationLatLngForKey(1, 1, Array{});
  EXPECT_TRUE(isEmpty());
  builder_.setTimeStampArray({"no entry"});
  EXPECT_EQ(builder_.getProperties(), nullptr);
  const auto given = std::make_shared<Dictionary>(Dictionary{{"zrv_non_interactive", null}});
  EXPECT_EQ(ZRPayloadBuilder::initWithDictionary(given)->eventDict(), given);
  const std::string file = "ZRPayloadBuilder";
  EXPECT_EQ(log_->errors(),
            (std::vector<LogRecorder::ErrorRecord>{
                {file, 89, "setDateForKey", "Exception while setting NSDate date attribute"},
                {file, 116, "setDateISOStringForKey", "Exception while setting ISO date attribute"},
                {file, 129, "setTimeStampForKey", "Exception while setting epoch date attribute"},
                {file, 146, "setLocationLatLngForKey", "Exception while setting Location attribute"},
                {file, 181, "getProperties", "Exception while getting ZRProperties instance from ZRPayloadBuilder"},
                {file, 65, "checkNonInteractive", "Exception in checkNonInteractive"}}));
}

TEST_F(PayloadBuilderTest, FacadeTracksTheBuildersProperties) {
  ZRAnalytics& facade = ZRAnalytics::sharedInstance();
  const auto builder = ZRPayloadBuilder::initWithDictionary({{"n", 1}});
  builder->setTimeStampForKey(1.5, "at");
  facade.trackEventBuilderPayload("full", builder);
  facade.trackEventBuilderPayload("bare", nullptr);
  settle();
  ASSERT_EQ(currentNames(), (Names{"full", "bare"}));
  const Dictionary full = *events().viewsInfoArray()->front().asDictionary();
  EXPECT_EQ(full.objectForKey("EVENT_ATTRS"), Value(Dictionary{{"n", 1}}));
  EXPECT_EQ(full.objectForKey("EVENT_ATTRS_CUST"), Value(Dictionary{{"timestamp", Array{Dictionary{{"at", 1500}}}}}));
}

}  // namespace
}  // namespace zorvane::testing
