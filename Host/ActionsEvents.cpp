// The action that hands events to the module.

#include <memory>
#include <string>
#include <utility>

#include "Host/Actions.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRPayloadBuilder.h"
#include "ZRAnalytics/Utils/ZRGeoLocation.h"

namespace zorvane::host {
namespace {

// Calls addText or addSeconds, by the kind of the date, with each date of the line and its name.
template <typename AddText, typename AddSeconds>
void forEachDate(const ScriptLine& line, const AddText& addText, const AddSeconds& addSeconds) {
  const Dictionary* dates = line.object("dates");
  if (!dates) return;
  for (const auto& [name, date] : *dates) {
    if (date.isString()) {
      addText(date, name);
    } else if (isPlainNumber(date)) {
      addSeconds(date.doubleValue(), name);
    } else {
      throw NotAnAction("\"dates\": \"" + std::string(name) + "\" must be ISO text or seconds since 1970");
    }
  }
}

template <typename Add>
void forEachLocation(const ScriptLine& line, const Add& add) {
  const Dictionary* locations = line.object("locations");
  if (!locations) return;
  for (const auto& [name, pair] : *locations) {
    const ScriptLine::Location location = ScriptLine::locationOf(pair, name);
    add(location.latitude, location.longitude, name);
  }
}

std::shared_ptr<const ZRPayloadBuilder> builderOf(const ScriptLine& line) {
  const Dictionary* attributes = line.object("attributes");
  auto builder = ZRPayloadBuilder::initWithDictionary(attributes ? std::make_shared<Dictionary>(*attributes) : nullptr);
  if (line.flag("nonInteractive")) builder->setNonInteractive();
  forEachDate(
      line, [&](const Value& text, std::string_view name) { builder->setDateISOStringForKey(text, name); },
      [&](double seconds, std::string_view name) { builder->setTimeStampForKey(seconds, name); });
  forEachLocation(line, [&](double latitude, double longitude, std::string_view name) {
    builder->setLocationLatLngForKey(latitude, longitude, name);
  });
  return builder;
}

}  // namespace

std::shared_ptr<const ZRProperties> propertiesOf(const ScriptLine& line) {
  const bool nonInteractive = line.flag("nonInteractive");
  const Dictionary* attributes = line.object("attributes");
  if (!nonInteractive && !attributes && !line.object("dates") && !line.object("locations")) return nullptr;
  auto properties = std::make_shared<ZRProperties>();
  if (nonInteractive) properties->setNonInteractive();
  if (attributes) {
    for (const auto& [name, value] : *attributes) properties->addAttributeWithName(value, name);
  }
  forEachDate(
      line,
      [&](const Value& text, std::string_view name) { properties->addDateISOStringAttributeWithName(text, name); },
      [&](double seconds, std::string_view name) { properties->addDateEpochAttributeWithName(seconds, name); });
  forEachLocation(line, [&](double latitude, double longitude, std::string_view name) {
    properties->addLocationAttributeWithName(ZRGeoLocation::initWithLatitudeAndLongitude(latitude, longitude), name);
  });
  return properties;
}

void playTrack(Runtime& runtime, const ScriptLine& line) {
  const bool toHandler = line.flag("handler");
  const auto builder = line.flag("builder") ? builderOf(line) : nullptr;
  auto properties = builder ? nullptr : propertiesOf(line);
  ZRAnalytics& analytics = runtime.analytics();
  if (toHandler) {
    ZREventsHandler::sharedInstance().trackEventWithPropertiesWithCompletionBlock(
        line.value("event"), builder ? builder->getProperties() : std::move(properties),
        [&runtime, number = line.number()] { printCompletion(runtime, "track", number); });
  } else if (builder) {
    analytics.trackEventBuilderPayload(line.value("event"), builder);
  } else {
    analytics.trackEventWithProperties(line.value("event"), std::move(properties));
  }
}

}  // namespace zorvane::host
