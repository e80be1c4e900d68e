// Collects an event's attributes and builds its properties on request.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "Platform/Export.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Not thread-safe. Nothing here throws. An entry without a value or a key is left out with a log line. An empty key is
// accepted here, and left out by the properties.
class ZR_PUBLIC ZRPayloadBuilder {
 public:
  ZRPayloadBuilder();
  // Shares the caller's dictionary, so later additions count too; null means a new one. If it has the key
  // "zrv_non_interactive", the value 1 sets the flag, and a copy without the key replaces the dictionary.
  static std::shared_ptr<ZRPayloadBuilder> initWithDictionary(std::shared_ptr<Dictionary> attributes);
  static std::shared_ptr<ZRPayloadBuilder> initWithDictionary(Dictionary attributes);
  // Also for {}.
  static std::shared_ptr<ZRPayloadBuilder> initWithDictionary(std::nullptr_t) {
    return initWithDictionary(std::shared_ptr<Dictionary>());
  }

  // The event will neither start nor extend a session.
  void setNonInteractive() { isNonInteractive_ = true; }
  // These two arrive in the properties as seconds since 1970 times 1,000,000. For milliseconds, as everywhere else, put
  // the date into the dictionary or use setTimeStampForKey.
  void setDateForKey(std::optional<Date> date, const Value& key);
  // "yyyy-MM-dd'T'HH:mm:ss'Z'", with or without ".SSS", in UTC.
  void setDateISOStringForKey(const Value& text, const Value& key);
  // Seconds since 1970. Exactly 0 is rejected.
  void setTimeStampForKey(double secondsSince1970, const Value& key);
  // Degrees. A latitude or longitude of exactly 0 is rejected.
  void setLocationLatLngForKey(double latitude, double longitude, const Value& key);

  // Handles the key "zrv_non_interactive" as initWithDictionary does, for a dictionary that was set or filled later.
  void checkNonInteractive();

  // New properties at each call: the dictionary's pairs, then dates, then locations. Null after an error, which is
  // logged.
  std::shared_ptr<ZRProperties> getProperties() const;

  // Whether the event will be non-interactive.
  bool isNonInteractive() const { return isNonInteractive_; }
  void setIsNonInteractive(bool nonInteractive) { isNonInteractive_ = nonInteractive; }
  // May be null, which counts as empty.
  const std::shared_ptr<Dictionary>& eventDict() const { return eventDict_; }
  void setEventDict(std::shared_ptr<Dictionary> attributes) { eventDict_ = std::move(attributes); }
  // Dictionaries of one pair, in the order added: key to number, key to ZRGeoLocation.
  Array& timeStampArray() { return timeStampArray_; }
  void setTimeStampArray(Array entries) { timeStampArray_ = std::move(entries); }
  Array& locationArray() { return locationArray_; }
  void setLocationArray(Array entries) { locationArray_ = std::move(entries); }

 private:
  bool isNonInteractive_ = false;
  std::shared_ptr<Dictionary> eventDict_;
  Array timeStampArray_;
  Array locationArray_;
};

}  // namespace zorvane
