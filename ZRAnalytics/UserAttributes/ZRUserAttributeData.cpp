#include "ZRAnalytics/UserAttributes/ZRUserAttributeData.h"

#include <algorithm>

#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Utils/ZRReport.h"

namespace zorvane {
namespace {

constexpr std::string_view kAttributesKey = "zrv_usr_attributes";

}  // namespace

std::shared_ptr<ZRUserAttributeData> ZRUserAttributeData::initWithCoder(const platform::ArchivedObject& coder) {
  std::vector<ZRUserAttribute> attributes;
  const Value archived = coder.decodeObject(kAttributesKey);
  if (const Array* array = archived.asArray()) {
    for (const Value& element : *array) {
      const auto object = element.asObject<platform::ArchivedObject>();
      if (object && object->className() == ZRUserAttribute::kClassName) {
        attributes.push_back(*ZRUserAttribute::initWithCoder(*object));
      }
    }
  }
  auto data = std::make_shared<ZRUserAttributeData>();
  data->setUserAttributesArray(std::move(attributes));
  return data;
}

std::shared_ptr<platform::ArchivedObject> ZRUserAttributeData::encodeWithCoder() const {
  Array archived;
  for (const ZRUserAttribute& attribute : userAttributesArray()) archived.emplace_back(attribute.encodeWithCoder());
  auto coder = std::make_shared<platform::ArchivedObject>(std::string(kClassName));
  coder->encodeObject(kAttributesKey, std::move(archived));
  return coder;
}

bool ZRUserAttributeData::saveAttributeWithValue(const std::string& name, const Value& value) {
  // The decision logs, so it is made on copies outside the lock. Of two threads that save one name at a time both may
  // be told to send; the later value stays.
  bool found = false;
  bool update = false;
  for (const ZRUserAttribute& attribute : userAttributesArray()) {
    if (attribute.attributeName() != name) continue;
    found = true;
    if (attribute.shouldUpdateAttributeWithNewValue(value)) update = true;
  }
  if (found && !update) {
    logLine("UserAttribute(%@) wasn't updated as the value(%@) is same.", {name, value});
    return false;
  }
  const ZRUserAttribute fresh = *ZRUserAttribute::initWithAttributeAndValue(name, value);
  platform::MutexLock lock(mutex_);
  bool stored = false;
  for (ZRUserAttribute& attribute : userAttributesArray_) {
    if (attribute.attributeName() != name) continue;
    attribute = fresh;
    stored = true;
  }
  if (!stored) userAttributesArray_.push_back(fresh);
  return true;
}

Value ZRUserAttributeData::valueOfAttribute(std::string_view name) const {
  platform::MutexLock lock(mutex_);
  const auto found =
      std::find_if(userAttributesArray_.begin(), userAttributesArray_.end(),
                   [name](const ZRUserAttribute& attribute) { return attribute.attributeName() == name; });
  return found == userAttributesArray_.end() ? Value() : found->attributeValue();
}

std::optional<Dictionary> ZRUserAttributeData::getIdentifierDict() const {
  Dictionary identifiers;
  identifiers.setObjectNilHandledForKey(valueOfAttribute(USER_ATTRIBUTE_UNIQUE_ID), kIdentifierKeyUserID);
  identifiers.setObjectNilHandledForKey(valueOfAttribute(USER_ATTRIBUTE_SEGMENT_ID), kIdentifierKeySegmentID);
  if (identifiers.empty()) return std::nullopt;
  return identifiers;
}

Value ZRUserAttributeData::getUserAttrUniqueID() const {
  return valueOfAttribute(USER_ATTRIBUTE_UNIQUE_ID);
}

std::vector<ZRUserAttribute> ZRUserAttributeData::userAttributesArray() const {
  platform::MutexLock lock(mutex_);
  return userAttributesArray_;
}

void ZRUserAttributeData::setUserAttributesArray(std::vector<ZRUserAttribute> attributes) {
  platform::MutexLock lock(mutex_);
  userAttributesArray_.swap(attributes);
}

}  // namespace zorvane
