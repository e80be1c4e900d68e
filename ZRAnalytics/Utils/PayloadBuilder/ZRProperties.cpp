#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"

#include <algorithm>
#include <utility>

#include "Platform/Formats/PropertyList.h"
#include "Platform/Values/FormatText.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Utils/PayloadBuilder/AttributePair.h"
#include "ZRAnalytics/Utils/ZRISODate.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZRProperties";

// Throws if the name is present but no text; the caller's guard reports that.
bool isUsableName(const Value& name) {
  if (!name.isNil() && !name.isString()) throw ValueError("the attribute name is no text: " + name.description());
  if (!name.isNil() && !name.asString()->empty()) return true;
  logLine("Attribute Name cannot be empty");
  return false;
}

bool isPresent(bool present, const char* message, const Value& name) {
  if (!present) logLine(message, {name});
  return present;
}

Dictionary transformedDictionary(const Dictionary& dictionary, int depth);

Value transformed(const Value& value, int depth) {
  switch (value.kind()) {
    case Value::Kind::Data:
      return ZRCoreUtils::hexTokenForData(*value.asData());
    case Value::Kind::URL:
      return value.asURL()->absoluteString;
    case Value::Kind::Null:
      return "";
    case Value::Kind::Dictionary:
      // The batch file cuts deeper values off.
      return depth < platform::kMaxPropertyListDepth ? Value(transformedDictionary(*value.asDictionary(), depth + 1))
                                                     : value;
    default:
      return value;
  }
}

Dictionary transformedDictionary(const Dictionary& dictionary, int depth) {
  Dictionary result;
  try {
    result.reserve(dictionary.size());
    for (const auto& [key, value] : dictionary) result.setObjectNilHandledForKey(transformed(value, depth), key);
  } catch (const std::exception& exception) {
    logLine("error while transforming data is %@", {exception.what()});
  }
  return result;
}

// Whether addAttributeWithName would add the attribute to the plain section, unchanged.
bool isStoredAsItIs(const Dictionary::Entry& attribute) {
  const bool isPlain =
      attribute.value.isNumber() || attribute.value.isString() || attribute.value.kind() == Value::Kind::Array;
  // The sizes first: == is a call.
  const bool isTheFlag =
      attribute.key.size() == kAttributeNameNonInteractive.size() && attribute.key == kAttributeNameNonInteractive;
  return isPlain && !attribute.key.empty() && !isTheFlag;
}

}  // namespace

std::shared_ptr<ZRProperties> ZRProperties::initWithAttributes(Dictionary attributes) {
  if (std::all_of(attributes.begin(), attributes.end(), isStoredAsItIs)) {
    return std::make_shared<ZRProperties>(std::move(attributes));
  }
  auto properties = std::make_shared<ZRProperties>();
  properties->attributeDict().reserve(attributes.size());
  for (const auto& [name, value] : attributes) properties->addAttributeWithName(value, name);
  return properties;
}

std::shared_ptr<ZRProperties> ZRProperties::initWithAttributes(const Dictionary* attributes) {
  return attributes ? initWithAttributes(*attributes) : std::make_shared<ZRProperties>();
}

void ZRProperties::addAttributeWithName(const Value& value, const Value& name) {
  guarded({kFile, "addAttributeWithName", 90}, "Exception while adding Location attribute to Properties", [&] {
    if (!isUsableName(name)) return;
    if (!isPresent(!value.isNil(), "Attribute Value cannot be nil, not tracking %@", name)) return;
    if (*name.asString() == kAttributeNameNonInteractive) {
      const std::int64_t flag = value.integerValue();
      if (flag == 0 || flag == 1) isNonInteractive_ = flag == 1;
    } else if (const Date* date = value.asDate()) {
      addDateAttributeWithName(*date, name);
    } else if (auto location = value.asObject<ZRGeoLocation>()) {
      addLocationAttributeWithName(location, name);
    } else {
      attributeDict().setObjectNilHandledForKey(transformAttrForIncompatibleTypes(value), *name.asString());
    }
  });
}

void ZRProperties::addLocationAttributeWithName(const std::shared_ptr<const ZRGeoLocation>& value, const Value& name) {
  guarded({kFile, "addLocationAttributeWithName", 113}, "Exception while adding Location attribute to Properties", [&] {
    if (!isUsableName(name)) return;
    if (!isPresent(value != nullptr, "Location attribute Value cannot be nil, not tracking %@", name)) return;
    locationAttrArray_.push_back(onePair(name, platform::formatText("%f,%f", {value->latitude(), value->longitude()})));
  });
}

void ZRProperties::addDateAttributeWithName(std::optional<Date> value, const Value& name) {
  guarded({kFile, "addDateAttributeWithName", 138}, "Exception while setting NSDate date attribute", [&] {
    if (!isUsableName(name)) return;
    if (!isPresent(value.has_value(), "Date attribute Value cannot be nil, not tracking %@", name)) return;
    dateAttrArray_.push_back(millisecondsPair(name, value->secondsSince1970));
  });
}

void ZRProperties::addDateISOStringAttributeWithName(const Value& value, const Value& name) {
  guarded({kFile, "addDateISOStringAttributeWithName", 169}, "Exception while setting ISO date attribute", [&] {
    if (!isUsableName(name)) return;
    if (!isPresent(!value.isNil(), "Date attribute Value cannot be nil, not tracking %@", name)) return;
    const auto date = dateOfISOText(value);
    if (!date) {
      logLine("Date attribute value(%@) tracked with wrong format. Valid format is: %@", {value, kZRDateFormatISO8601});
      return;
    }
    dateAttrArray_.push_back(millisecondsPair(name, date->secondsSince1970));
  });
}

void ZRProperties::addDateEpochAttributeWithName(double secondsSince1970, const Value& name) {
  guarded({kFile, "addDateEpochAttributeWithName", 184}, "Exception while setting epoch date attribute", [&] {
    if (isUsableName(name)) dateAttrArray_.push_back(millisecondsPair(name, secondsSince1970));
  });
}

Value ZRProperties::transformAttrForIncompatibleTypes(const Value& value) {
  try {
    return transformed(value, 0);
  } catch (const std::exception& exception) {
    logLine("error while transforming data is %@", {exception.what()});
    return "";
  }
}

Dictionary ZRProperties::transformDictAttrForIncompatibleTypes(const Dictionary& dictionary) {
  return transformedDictionary(dictionary, 0);
}

}  // namespace zorvane
