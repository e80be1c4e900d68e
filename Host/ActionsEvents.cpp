// The actions that hand events, links and sources to the module.

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Host/Actions.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/SessionAndSource/ZRSource.h"
#include "ZRAnalytics/Utils/ZRGeoLocation.h"
#include "ZorvaneCore/ZRAppDelegateSwizzler.h"

namespace zorvane::host {
namespace {

void addDates(const Dictionary& dates, ZRProperties& properties) {
  for (const auto& [name, date] : dates) {
    if (date.isString()) {
      properties.addDateISOStringAttributeWithName(date, name);
    } else if (isPlainNumber(date)) {
      properties.addDateEpochAttributeWithName(date.doubleValue(), name);
    } else {
      throw NotAnAction("\"dates\": \"" + name + "\" must be ISO text or seconds since 1970");
    }
  }
}

void addLocations(const Dictionary& locations, ZRProperties& properties) {
  for (const auto& [name, pair] : locations) {
    const ScriptLine::Location location = ScriptLine::locationOf(pair, name);
    properties.addLocationAttributeWithName(
        ZRGeoLocation::initWithLatitudeAndLongitude(location.latitude, location.longitude), name);
  }
}

}  // namespace

std::shared_ptr<const ZRProperties> propertiesOf(const ScriptLine& line) {
  const bool nonInteractive = line.flag("nonInteractive");
  const Dictionary* attributes = line.object("attributes");
  const Dictionary* dates = line.object("dates");
  const Dictionary* locations = line.object("locations");
  if (!nonInteractive && !attributes && !dates && !locations) return nullptr;
  auto properties = std::make_shared<ZRProperties>();
  if (nonInteractive) properties->setNonInteractive();
  if (attributes) {
    for (const auto& [name, value] : *attributes) properties->addAttributeWithName(value, name);
  }
  if (dates) addDates(*dates, *properties);
  if (locations) addLocations(*locations, *properties);
  return properties;
}

void playTrack(Runtime& runtime, const ScriptLine& line) {
  if (line.flag("builder")) refuse("\"track\" with \"builder\"");
  const bool toHandler = line.flag("handler");
  auto properties = propertiesOf(line);
  ZRAnalytics& analytics = runtime.analytics();
  if (!toHandler) {
    analytics.trackEventWithProperties(line.value("event"), std::move(properties));
    return;
  }
  ZREventsHandler::sharedInstance().trackEventWithPropertiesWithCompletionBlock(
      line.value("event"), std::move(properties),
      [&runtime, number = line.number()] { printCompletion(runtime, "track", number); });
}

void playOpenURL(Runtime& runtime, const ScriptLine& line) {
  const auto text = line.text("url");
  const std::optional<URL> url = text ? std::optional(URL{*text}) : std::nullopt;
  const std::string via = line.text("via").value_or("app");
  if (via == "proxy" || via == "activity") refuse("\"openURL\" via \"" + via + "\"");
  if (via != "app" && via != "facade") throw NotAnAction("\"via\" must be \"app\" or \"facade\"");
  if (via == "app") {
    runtime.onMainThread([&] {
      ZRAppDelegateSwizzler::forEachInterceptor(
          [&](UIApplicationDelegate& interceptor) { interceptor.applicationOpenURLOptions(url, {}); });
    });
  }
  runtime.analytics().processURL(url);
}

void playSources(Runtime& runtime, const ScriptLine& line) {
  const Array* dictionaries = line.array("sources");
  const bool own = line.flag("own");
  if (!line.has("push")) {
    std::optional<ZRSourceArray> sources;
    if (dictionaries) {
      sources.emplace();
      for (const Value& dictionary : *dictionaries) {
        sources->push_back(ZRSource::initSourceWithSourceInfoDict(dictionary));
      }
    }
    runtime.analytics().updateSourcesForCurrentSession(sources);
    return;
  }
  if (dictionaries) throw NotAnAction("\"sources\" and \"push\" exclude each other");
  const Value payload = line.value("push");
  const auto source =
      own ? ZRSource::initZrvSourceWithPushPayload(payload) : ZRSource::initSourceWithPushPayload(payload);
  if (source->isValidSource()) runtime.analytics().updateSourcesForCurrentSession(ZRSourceArray{source});
}

}  // namespace zorvane::host
