#include "Support/ModuleTest.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"

namespace zorvane::testing {
namespace {

class PropertiesTest : public ModuleTest {
 protected:
  void SetUp() override { start(); }
  bool isEmpty() const {
    return properties_.getAttributesDict().empty() && properties_.getDateTimeAttributesArray().empty() &&
           properties_.getLocationAttributesArray().empty();
  }
  ZRProperties properties_;
};

TEST_F(PropertiesTest, EachKindOfValueGoesToItsSection) {
  const auto properties =
      ZRProperties::initWithAttributes({{"text", "a"},
                                        {"number", 10.5},
                                        {"flag", true},
                                        {"day", Date{1.2345}},
                                        {"place", ZRGeoLocation::initWithLatitudeAndLongitude(1, 2)},
                                        {"zrv_non_interactive", 1}});
  EXPECT_EQ(properties->getAttributesDict(), (Dictionary{{"text", "a"}, {"number", 10.5}, {"flag", true}}));
  EXPECT_TRUE(properties->getAttributesDict().find("flag")->asBool()) << "a boolean stays one";
  EXPECT_EQ(properties->getDateTimeAttributesArray(), (Array{Dictionary{{"day", 1234.5}}}));
  EXPECT_EQ(properties->getLocationAttributesArray(), (Array{Dictionary{{"place", "1.000000,2.000000"}}}));
  EXPECT_TRUE(properties->isNonInteractiveEvent());
}

TEST_F(PropertiesTest, TheReservedNameOnlyMovesTheFlag) {
  const struct {
    bool before;
    Value value;
    bool after;
  } cases[] = {{false, 1, true},    {false, "1", true}, {false, " 1x", true}, {false, true, true}, {false, 1.9, true},
               {false, 2, false},   {true, 2, true},    {true, -1, true},     {true, 0, false},    {true, false, false},
               {true, "no", false}, {true, "", false},  {true, "2", true}};
  for (const auto& [before, value, after] : cases) {
    properties_.setIsNonInteractive(before);
    properties_.addAttributeWithName(value, "zrv_non_interactive");
    EXPECT_EQ(properties_.isNonInteractiveEvent(), after) << value.description() << " after " << before;
  }
  EXPECT_TRUE(isEmpty());
  EXPECT_TRUE(log_->errors().empty());
}

TEST_F(PropertiesTest, OnlyTheGeneralEntryKnowsTheReservedName) {
  properties_.addDateEpochAttributeWithName(1, "zrv_non_interactive");
  properties_.addLocationAttributeWithName(ZRGeoLocation::initWithLatitudeAndLongitude(0, 0), "zrv_non_interactive");
  properties_.addAttributeWithName(1, "ZRV_NON_INTERACTIVE");
  EXPECT_FALSE(properties_.isNonInteractiveEvent());
  EXPECT_EQ(properties_.getDateTimeAttributesArray().size(), 1u);
  EXPECT_EQ(properties_.getLocationAttributesArray().size(), 1u);
  EXPECT_EQ(properties_.getAttributesDict(), (Dictionary{{"ZRV_NON_INTERACTIVE", 1}}));
}

TEST_F(PropertiesTest, ANameKeepsItsLastPlainValueAndEveryDateAndPlace) {
  for (const int round : {1, 2}) {
    properties_.addAttributeWithName(round, "n");
    properties_.addAttributeWithName(Date{static_cast<double>(round)}, "n");
    properties_.addAttributeWithName(ZRGeoLocation::initWithLatitudeAndLongitude(round, 0), "n");
  }
  EXPECT_EQ(properties_.getAttributesDict(), (Dictionary{{"n", 2}}));
  EXPECT_EQ(properties_.getDateTimeAttributesArray(), (Array{Dictionary{{"n", 1000}}, Dictionary{{"n", 2000}}}));
  EXPECT_EQ(properties_.getLocationAttributesArray(),
            (Array{Dictionary{{"n", "1.000000,0.000000"}}, Dictionary{{"n", "2.000000,0.000000"}}}));
}

TEST_F(PropertiesTest, ADateTextIsTakenInEitherPatternAndOnlyWhole) {
  const struct {
    const char* text;
    double milliseconds;  // negative: refused
  } cases[] = {{"1970-01-01T00:00:01Z", 1000},
               {"1970-01-01T00:00:01.250Z", 1250},
               {"1970-01-01", -1},
               {"1970-01-01T00:00:01", -1},
               {"1970-01-01T00:00:01Z ", -1},
               {"1970-02-30T00:00:00Z", -1},
               {"", -1}};
  for (const auto& [text, milliseconds] : cases) {
    properties_.setDateAttrArray({});
    log_->clear();
    properties_.addDateISOStringAttributeWithName(text, "day");
    const bool refused = milliseconds < 0;
    EXPECT_EQ(properties_.getDateTimeAttributesArray(), refused ? Array{} : (Array{Dictionary{{"day", milliseconds}}}))
        << text;
    EXPECT_EQ(log_->messages(), refused ? std::vector{"Date attribute value(" + std::string(text) +
                                                      ") tracked with wrong format. Valid format is: "
                                                      "yyyy-MM-dd'T'HH:mm:ss'Z'"}
                                        : std::vector<std::string>{});
  }
}

TEST_F(PropertiesTest, NumbersOfTimesAndPlacesAreTakenWithoutACheck) {
  for (const double seconds : {1.5, 0.0, -2.0}) properties_.addDateEpochAttributeWithName(seconds, "t");
  EXPECT_EQ(properties_.getDateTimeAttributesArray(),
            (Array{Dictionary{{"t", 1500}}, Dictionary{{"t", 0}}, Dictionary{{"t", -2000}}}));
  EXPECT_TRUE(properties_.getDateTimeAttributesArray()[0].asDictionary()->find("t")->asDouble());
  for (const auto& [latitude, longitude] : {std::pair{0.0, 0.0}, {12.971599, 77.594563}, {-90.0, 1000.00000051}}) {
    properties_.addLocationAttributeWithName(ZRGeoLocation::initWithLatitudeAndLongitude(latitude, longitude), "l");
  }
  EXPECT_EQ(properties_.getLocationAttributesArray(),
            (Array{Dictionary{{"l", "0.000000,0.000000"}}, Dictionary{{"l", "12.971599,77.594563"}},
                   Dictionary{{"l", "-90.000000,1000.000001"}}}));
}

TEST_F(PropertiesTest, WhatTheServiceCannotTakeIsConvertedInDictionariesButNotInArrays) {
  const Dictionary mixed{{"data", Data{{0x00, 0xAB, 0xff}}},
                         {"url", URL{"http://a/b?c"}},
                         {"null", null},
                         {"date", Date{5}},
                         {"list", Array{null, URL{"u"}, Data{{1}}}}};
  const Dictionary converted{{"data", "00abff"},
                             {"url", "http://a/b?c"},
                             {"null", ""},
                             {"date", Date{5}},
                             {"list", Array{null, URL{"u"}, Data{{1}}}}};
  for (const auto& [name, value] : mixed) {
    if (!value.asDate()) properties_.addAttributeWithName(value, name);
  }
  properties_.addAttributeWithName(Dictionary{{"deep", mixed}}, "nested");
  Dictionary expected = converted;
  expected.remove("date");
  expected.set("nested", Dictionary{{"deep", converted}});
  EXPECT_EQ(properties_.getAttributesDict(), expected);
  EXPECT_EQ(ZRProperties::transformDictAttrForIncompatibleTypes(mixed), converted);
  EXPECT_EQ(ZRProperties::transformAttrForIncompatibleTypes(Date{5}), Date{5}) << "only adding looks at dates";
}

TEST_F(PropertiesTest, AnAttributeWithoutNameOrValueIsLoggedAndLeftOut) {
  const auto place = ZRGeoLocation::initWithLatitudeAndLongitude(0, 0);
  const std::string noName = "Attribute Name cannot be empty";
  const std::string noDate = "Date attribute Value cannot be nil, not tracking n";
  for (const Value& name : {Value(), Value("")}) {
    properties_.addAttributeWithName(nullptr, name);
    properties_.addAttributeWithName(1, name);
    properties_.addLocationAttributeWithName(place, name);
    properties_.addDateAttributeWithName(Date{1}, name);
    properties_.addDateISOStringAttributeWithName("1970-01-01T00:00:01Z", name);
    properties_.addDateEpochAttributeWithName(1, name);
  }
  EXPECT_EQ(log_->messages(), std::vector<std::string>(12, noName));
  log_->clear();
  properties_.addAttributeWithName(nullptr, "n");
  properties_.addLocationAttributeWithName(nullptr, "n");
  properties_.addDateAttributeWithName(std::nullopt, "n");
  properties_.addDateISOStringAttributeWithName(nullptr, "n");
  EXPECT_EQ(log_->messages(),
            (std::vector<std::string>{"Attribute Value cannot be nil, not tracking n",
                                      "Location attribute Value cannot be nil, not tracking n", noDate, noDate}));
  EXPECT_TRUE(isEmpty());
}

TEST_F(PropertiesTest, AnExceptionCostsItsAttributeAndIsReported) {
  properties_.addAttributeWithName("kept", "k");
  properties_.addAttributeWithName(null, "zrv_non_interactive");
  properties_.addAttributeWithName(1, 7);
  properties_.addLocationAttributeWithName(ZRGeoLocation::initWithLatitudeAndLongitude(0, 0), null);
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
  EXPECT_FALSE(properties_.isNonInteractiveEvent());
  EXPECT_EQ(properties_.getAttributesDict(), (Dictionary{{"k", "kept"}}));
  EXPECT_TRUE(properties_.getDateTimeAttributesArray().empty());
  EXPECT_TRUE(properties_.getLocationAttributesArray().empty());
}

}  // namespace
}  // namespace zorvane::testing
