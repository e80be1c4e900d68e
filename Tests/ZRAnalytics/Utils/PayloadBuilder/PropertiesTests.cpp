#include "Support/ModuleTest.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"

namespace zorvane::testing {
namespace {

std::shared_ptr<ZRGeoLocation> place(double latitude, double longitude) {
  return ZRGeoLocation::initWithLatitudeAndLongitude(latitude, longitude);
}

class PropertiesTest : public ModuleTest {
 protected:
  void SetUp() override { start(); }
  const Dictionary& plain() const { return properties_.getAttributesDict(); }
  const Array& dates() const { return properties_.getDateTimeAttributesArray(); }
  const Array& places() const { return properties_.getLocationAttributesArray(); }
  ZRProperties properties_;
};

TEST_F(PropertiesTest, EachKindOfValueGoesToItsSection) {
  const auto properties = ZRProperties::initWithAttributes({{"text", "a"},
                                                            {"number", 10.5},
                                                            {"flag", true},
                                                            {"day", Date{1.2345}},
                                                            {"place", place(1, 2)},
                                                            {"zrv_non_interactive", 1}});
  EXPECT_EQ(properties->getAttributesDict(), (Dictionary{{"text", "a"}, {"number", 10.5}, {"flag", true}}));
  EXPECT_TRUE(properties->getAttributesDict().find("flag")->asBool()) << "a boolean stays one";
  EXPECT_EQ(properties->getDateTimeAttributesArray(), (Array{Dictionary{{"day", 1234.5}}}));
  EXPECT_EQ(properties->getLocationAttributesArray(), (Array{Dictionary{{"place", "1.000000,2.000000"}}}));
  EXPECT_TRUE(properties->isNonInteractiveEvent());
}

TEST_F(PropertiesTest, ReservedNameOnlyChangesTheFlag) {
  const struct {
    bool before;
    Value value;
    bool after;
  } cases[] = {{false, 1, true},  {false, " 1x", true}, {false, true, true}, {false, 1.9, true},
               {false, 2, false}, {true, 2, true},      {true, -1, true},    {true, 0, false},
               {true, "2", true}, {true, "no", false},  {true, false, false}};
  for (const auto& [before, value, after] : cases) {
    properties_.setIsNonInteractive(before);
    properties_.addAttributeWithName(value, "zrv_non_interactive");
    EXPECT_EQ(properties_.isNonInteractiveEvent(), after) << value.description() << " after " << before;
  }
  EXPECT_TRUE(plain().empty());
  EXPECT_TRUE(log_->errors().empty());

  // Only addAttributeWithName knows the name, and only in this spelling.
  properties_.setIsNonInteractive(false);
  properties_.addDateEpochAttributeWithName(1, "zrv_non_interactive");
  properties_.addLocationAttributeWithName(place(0, 0), "zrv_non_interactive");
  properties_.addAttributeWithName(1, "ZRV_NON_INTERACTIVE");
  EXPECT_FALSE(properties_.isNonInteractiveEvent());
  EXPECT_EQ(dates().size() + places().size() + plain().size(), 3u);
}

TEST_F(PropertiesTest, NameKeepsItsLastPlainValueAndAllItsDatesAndPlaces) {
  for (const int round : {1, 2}) {
    properties_.addAttributeWithName(round, "n");
    properties_.addAttributeWithName(Date{static_cast<double>(round)}, "n");
    properties_.addAttributeWithName(place(round, 0), "n");
  }
  EXPECT_EQ(plain(), (Dictionary{{"n", 2}}));
  EXPECT_EQ(dates(), (Array{Dictionary{{"n", 1000}}, Dictionary{{"n", 2000}}}));
  EXPECT_EQ(places(), (Array{Dictionary{{"n", "1.000000,0.000000"}}, Dictionary{{"n", "2.000000,0.000000"}}}));
}

TEST_F(PropertiesTest, DateTextMustMatchOneOfTheTwoPatterns) {
  properties_.addDateISOStringAttributeWithName("1970-01-01T00:00:01Z", "day");
  properties_.addDateISOStringAttributeWithName("1970-01-01T00:00:01.250Z", "day");
  EXPECT_TRUE(log_->messages().empty());
  for (const std::string text : {"1970-01-01", "1970-01-01T00:00:01Z ", "1970-02-30T00:00:00Z", ""}) {
    properties_.addDateISOStringAttributeWithName(text, "day");
    EXPECT_EQ(log_->messages().back(), "Date attribute value(" + text +
                                           ") tracked with wrong format. Valid format is: yyyy-MM-dd'T'HH:mm:ss'Z'");
  }
  EXPECT_EQ(dates(), (Array{Dictionary{{"day", 1000}}, Dictionary{{"day", 1250}}}));
}

TEST_F(PropertiesTest, AnySecondsAndCoordinatesAreTaken) {
  for (const double seconds : {0.0, -2.0}) properties_.addDateEpochAttributeWithName(seconds, "t");
  EXPECT_EQ(dates(), (Array{Dictionary{{"t", 0}}, Dictionary{{"t", -2000}}}));
  EXPECT_TRUE(dates()[0].asDictionary()->find("t")->asDouble());
  properties_.addLocationAttributeWithName(place(-90, 1000.00000051), "l");
  EXPECT_EQ(places(), (Array{Dictionary{{"l", "-90.000000,1000.000001"}}}));
}

TEST_F(PropertiesTest, UnsupportedKindsAreConvertedInDictionariesButNotInArrays) {
  const Array list{null, URL{"u"}, Data{{1}}};
  const Dictionary mixed{{"data", Data{{0x00, 0xAB, 0xff}}},
                         {"url", URL{"http://a/b?c"}},
                         {"null", null},
                         {"date", Date{5}},
                         {"list", list}};
  const Dictionary converted{
      {"data", "00abff"}, {"url", "http://a/b?c"}, {"null", ""}, {"date", Date{5}}, {"list", list}};
  for (const auto& [name, value] : mixed) properties_.addAttributeWithName(value, name);
  properties_.addAttributeWithName(Dictionary{{"deep", mixed}}, "nested");
  Dictionary expected = converted;
  expected.remove("date");
  expected.set("nested", Dictionary{{"deep", converted}});
  EXPECT_EQ(plain(), expected);
  EXPECT_EQ(dates().size(), 1u) << "only a date at the top is one of the event's dates";
  Dictionary deep;
  for (int level = 0; level < 200'000; ++level) deep = {{"d", std::move(deep)}};
  properties_.addAttributeWithName(std::move(deep), "deep");
  EXPECT_TRUE(plain().contains("deep")) << "converted without deep recursion";
}

TEST_F(PropertiesTest, AttributeWithoutNameOrValueIsLoggedAndLeftOut) {
  for (const Value& name : {Value(), Value("")}) {
    log_->clear();
    properties_.addAttributeWithName(1, name);
    properties_.addLocationAttributeWithName(place(0, 0), name);
    properties_.addDateAttributeWithName(Date{1}, name);
    properties_.addDateISOStringAttributeWithName("1970-01-01T00:00:01Z", name);
    properties_.addDateEpochAttributeWithName(1, name);
    EXPECT_EQ(log_->messages(), std::vector<std::string>(5, "Attribute Name cannot be empty"));
  }
  log_->clear();
  properties_.addAttributeWithName(nullptr, "n");
  properties_.addLocationAttributeWithName(nullptr, "n");
  properties_.addDateAttributeWithName(std::nullopt, "n");
  properties_.addDateISOStringAttributeWithName(nullptr, "n");
  const std::string noDate = "Date attribute Value cannot be nil, not tracking n";
  EXPECT_EQ(log_->messages(),
            (std::vector<std::string>{"Attribute Value cannot be nil, not tracking n",
                                      "Location attribute Value cannot be nil, not tracking n", noDate, noDate}));
  EXPECT_TRUE(plain().empty() && dates().empty() && places().empty());
}

TEST_F(PropertiesTest, ExceptionCostsOnlyItsAttributeAndIsReported) {
  properties_.addAttributeWithName(null, "zrv_non_interactive");
  properties_.addAttributeWithName(1, 7);
  properties_.addLocationAttributeWithName(place(0, 0), null);
  properties_.addDateAttributeWithName(Date{1}, 7);
  properties_.addDateISOStringAttributeWithName(7, "n");
  properties_.addDateEpochAttributeWithName(1, 7);
  const std::string general = "Exception while adding Location attribute to Properties";
  EXPECT_EQ(
      log_->errors(),
      (std::vector<LogRecorder::ErrorRecord>{
          {"ZRProperties", 90, "addAttributeWithName", general},
          {"ZRProperties", 90, "addAttributeWithName", general},
          {"ZRProperties", 113, "addLocationAttributeWithName", general},
          {"ZRProperties", 138, "addDateAttributeWithName", "Exception while setting NSDate date attribute"},
          {"ZRProperties", 169, "addDateISOStringAttributeWithName", "Exception while setting ISO date attribute"},
          {"ZRProperties", 184, "addDateEpochAttributeWithName", "Exception while setting epoch date attribute"}}));
  EXPECT_TRUE(plain().empty() && dates().empty() && places().empty());
}

}  // namespace
}  // namespace zorvane::testing
