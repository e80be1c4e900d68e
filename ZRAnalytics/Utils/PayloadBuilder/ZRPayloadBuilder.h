// A second way to describe an event's attributes: collected first, turned into properties on request.
#pragma once

#include <memory>
#include <optional>

#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Filled and converted by one thread. Nothing here throws: an entry without a value or a key is logged and left out. An
// empty key is taken here and left out by the properties.
class ZRPayloadBuilder {
 public:
  ZRPayloadBuilder();
  // Keeps the caller's dictionary itself: what the caller adds later counts too. Null is a new one. The key
  // "zrv_non_interactive" sets the flag if its value is 1; then a copy without the key takes the dictionary's place.
  static std::shared_ptr<ZRPayloadBuilder> initWithDictionary(std::shared_ptr<Dictionary> attributes);
  static std::shared_ptr<ZRPayloadBuilder> initWithDictionary(Dictionary attributes);

  void setNonInteractive() { isNonInteractive_ = true; }
  // These two arrive as the date's seconds since 1970 times 1,000,000. For milliseconds, as everywhere else, put the
  // date into the dictionary or use setTimeStampForKey.
  void setDateForKey(std::optional<Date> date, const Value& key);
  // "yyyy-MM-dd'T'HH:mm:ss'Z'", with or without ".SSS", in UTC.
  void setDateISOStringForKey(const Value& text, const Value& key);
  // Seconds since 1970; exactly 0 is refused.
  void setTimeStampForKey(double secondsSince1970, const Value& key);
  // Degrees; exactly 0 is refused for either.
  void setLocationLatLngForKey(double latitude, double longitude, const Value& key);

  // Lets the dictionary's key "zrv_non_interactive" set the flag, as initWithDictionary does: for a dictionary that was
  // set or filled later.
  void checkNonInteractive();

  // New properties at each call: the dictionary's pairs, then dates, then locations. Null after an internal failure,
  // which is reported.
  std::shared_ptr<ZRProperties> getProperties() const;

  bool isNonInteractive() const { return isNonInteractive_; }
  void setIsNonInteractive(bool nonInteractive) { isNonInteractive_ = nonInteractive; }
  // May be null; counts as empty then.
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
