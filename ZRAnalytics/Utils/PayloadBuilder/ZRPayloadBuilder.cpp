#include "ZRAnalytics/Utils/PayloadBuilder/ZRPayloadBuilder.h"

#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Utils/PayloadBuilder/AttributePair.h"
#include "ZRAnalytics/Utils/ZRISODate.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRCoreConstants.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZRPayloadBuilder";

// Calls the work with each pair of each entry.
template <typename Work>
void forEachPair(const Array& entries, const Work& work) {
  for (const Value& entry : entries) {
    const Dictionary* const pairs = entry.asDictionary();
    if (!pairs) throw ValueError("an entry is no dictionary: " + entry.description());
    for (const auto& [key, value] : *pairs) work(value, key);
  }
}

}  // namespace

ZRPayloadBuilder::ZRPayloadBuilder() : eventDict_(std::make_shared<Dictionary>()) {}

std::shared_ptr<ZRPayloadBuilder> ZRPayloadBuilder::initWithDictionary(std::shared_ptr<Dictionary> attributes) {
  auto builder = std::make_shared<ZRPayloadBuilder>();
  if (attributes) builder->eventDict_ = std::move(attributes);
  builder->checkNonInteractive();
  return builder;
}

std::shared_ptr<ZRPayloadBuilder> ZRPayloadBuilder::initWithDictionary(Dictionary attributes) {
  return initWithDictionary(std::make_shared<Dictionary>(std::move(attributes)));
}

void ZRPayloadBuilder::checkNonInteractive() {
  guarded({kFile, "checkNonInteractive", 65}, "Exception in checkNonInteractive", [this] {
    const Value* const flag = eventDict_ ? eventDict_->find(kAttributeNameNonInteractive) : nullptr;
    if (!flag) return;
    if (flag->integerValue() == 1) isNonInteractive_ = true;
    auto others = std::make_shared<Dictionary>(*eventDict_);
    others->remove(kAttributeNameNonInteractive);
    eventDict_ = std::move(others);
  });
}

void ZRPayloadBuilder::setDateForKey(std::optional<Date> date, const Value& key) {
  guarded({kFile, "setDateForKey", 89}, "Exception while setting NSDate date attribute", [&] {
    if (!date || key.isNil()) {
      logLine("Trying to set date for key while one of them is nil");
      return;
    }
    // ZRProperties multiplies by 1000 once more, which gives the documented scale of this setter and the next one.
    timeStampArray_.push_back(millisecondsPair(key, date->secondsSince1970));
  });
}

void ZRPayloadBuilder::setDateISOStringForKey(const Value& text, const Value& key) {
  guarded({kFile, "setDateISOStringForKey", 116}, "Exception while setting ISO date attribute", [&] {
    if (text.isNil() || key.isNil()) {
      logLine("Trying to set ISO date for key while one of them is nil");
      return;
    }
    const auto date = dateOfISOText(text);
    if (!date) {
      logLine("Date attribute value(%@) tracked with wrong format. Valid format is: %@", {text, kZRDateFormatISO8601});
      return;
    }
    timeStampArray_.push_back(millisecondsPair(key, date->secondsSince1970));
  });
}

void ZRPayloadBuilder::setTimeStampForKey(double secondsSince1970, const Value& key) {
  guarded({kFile, "setTimeStampForKey", 129}, "Exception while setting epoch date attribute", [&] {
    if (secondsSince1970 == 0.0 || key.isNil()) {
      logLine("Trying to set timestamp for key while one of them is nil");
      return;
    }
    timeStampArray_.push_back(onePair(key, secondsSince1970));
  });
}

void ZRPayloadBuilder::setLocationLatLngForKey(double latitude, double longitude, const Value& key) {
  guarded({kFile, "setLocationLatLngForKey", 146}, "Exception while setting Location attribute", [&] {
    if (latitude == 0.0 || longitude == 0.0 || key.isNil()) {
      logLine("Trying to set lat long and key while one of them is nil");
      return;
    }
    locationArray_.push_back(onePair(key, ZRGeoLocation::initWithLatitudeAndLongitude(latitude, longitude)));
  });
}

std::shared_ptr<ZRProperties> ZRPayloadBuilder::getProperties() const {
  std::shared_ptr<ZRProperties> result;
  guarded({kFile, "getProperties", 181}, "Exception while getting ZRProperties instance from ZRPayloadBuilder", [&] {
    auto properties = ZRProperties::initWithAttributes(eventDict_ ? *eventDict_ : Dictionary());
    forEachPair(timeStampArray_, [&](const Value& number, std::string_view key) {
      properties->addDateEpochAttributeWithName(number.doubleValue(), key);
    });
    forEachPair(locationArray_, [&](const Value& location, std::string_view key) {
      properties->addLocationAttributeWithName(location.asObject<ZRGeoLocation>(), key);
    });
    if (isNonInteractive_) properties->setNonInteractive();
    result = std::move(properties);
  });
  return result;
}

}  // namespace zorvane
