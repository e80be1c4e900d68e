// The typed attributes of one event.
#pragma once

#include <memory>
#include <optional>

#include "Platform/Export.h"
#include "ZRAnalytics/Utils/ZRGeoLocation.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Attributes in three sections: plain, date-time (milliseconds since 1970) and location ("latitude,longitude").
//
// Not thread-safe: one thread fills it, hands it over with the event and does not change it afterwards. The shared
// pointer that is handed over must own it: an event that was recorded may keep it until it is saved. Nothing here
// throws. An attribute without a name or a value, or with an unparsable date, is left out with a log line.
class ZR_PUBLIC ZRProperties {
 public:
  ZRProperties() = default;
  // The attributes become the plain section as they are.
  explicit ZRProperties(Dictionary plain) : attributeDict_(std::move(plain)) {}
  ZRProperties(const ZRProperties&) = default;
  ZRProperties& operator=(const ZRProperties&) = default;
  // Calls addAttributeWithName for each pair; null means no attributes. Containers are named:
  //   initWithAttributes({{"price", 9.5}, {"sizes", Array{41, 42}}, {"shop", Dictionary{{"city", "Bonn"}}}})
  static std::shared_ptr<ZRProperties> initWithAttributes(Dictionary attributes);
  static std::shared_ptr<ZRProperties> initWithAttributes(const Dictionary* attributes);

  // Takes any value; the name comes second and must be text. A date goes to the date-time section, a ZRGeoLocation to
  // the location section, everything else to the plain section, where it replaces an earlier value of that name. Data
  // becomes hexadecimal text, a URL its text, a null marker "", in nested dictionaries too; arrays stay unchanged. The
  // name "zrv_non_interactive" is never stored: the value 1 sets the non-interactive flag, 0 clears it.
  void addAttributeWithName(const Value& value, const Value& name);
  // Into the location section.
  void addLocationAttributeWithName(const std::shared_ptr<const ZRGeoLocation>& value, const Value& name);
  // Into the date-time section.
  void addDateAttributeWithName(std::optional<Date> value, const Value& name);
  // "yyyy-MM-dd'T'HH:mm:ss'Z'", with or without ".SSS", in UTC.
  void addDateISOStringAttributeWithName(const Value& value, const Value& name);
  // Seconds since 1970; every value is accepted.
  void addDateEpochAttributeWithName(double secondsSince1970, const Value& name);

  // A non-interactive event neither starts nor extends a session.
  void setNonInteractive() { isNonInteractive_ = true; }
  bool isNonInteractiveEvent() const { return isNonInteractive_; }

  // The live containers, valid until this object is handed over or destroyed. The arrays hold dictionaries of one pair,
  // in the order added.
  const Dictionary& getAttributesDict() const { return attributeDict_; }
  const Array& getDateTimeAttributesArray() const { return dateAttrArray_; }
  const Array& getLocationAttributesArray() const { return locationAttrArray_; }

  // The three sections and the flag, to read and to replace.
  Dictionary& attributeDict() { return attributeDict_; }
  void setAttributeDict(Dictionary attributes) { attributeDict_ = std::move(attributes); }
  Array& dateAttrArray() { return dateAttrArray_; }
  void setDateAttrArray(Array attributes) { dateAttrArray_ = std::move(attributes); }
  Array& locationAttrArray() { return locationAttrArray_; }
  void setLocationAttrArray(Array attributes) { locationAttrArray_ = std::move(attributes); }
  bool isNonInteractive() const { return isNonInteractive_; }
  void setIsNonInteractive(bool nonInteractive) { isNonInteractive_ = nonInteractive; }

  // The value as the plain section stores it.
  static Value transformAttrForIncompatibleTypes(const Value& value);
  static Dictionary transformDictAttrForIncompatibleTypes(const Dictionary& dictionary);

 private:
  bool isNonInteractive_ = false;
  Dictionary attributeDict_;
  Array dateAttrArray_;
  Array locationAttrArray_;
};

}  // namespace zorvane
