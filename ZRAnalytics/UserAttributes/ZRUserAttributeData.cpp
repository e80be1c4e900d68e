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
  // The decisions log, so they are made on copies outside the lock. Of two threads that save one name at a time both
  // may be told to send; the later value stays.
  const std::vector<ZRUserAttribute> attributes = userAttributesArray();
  bool found = false;
  std::vector<std::size_t> due;
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    if (attributes[i].attributeName() != name) continue;
    found = true;
    if (attributes[i].shouldUpdateAttributeWithNewValue(value)) due.push_back(i);
  }
  if (found && due.empty()) {
    logLine("UserAttribute(%@) wasn't updated as the value(%@) is same.", {name, value});
    return false;
  }
  const ZRUserAttribute fresh = *ZRUserAttribute::initWithAttributeAndValue(name, value);
  platform::MutexLock lock(mutex_);
  for (const std::size_t i : due) {
    if (i < userAttributesArray_.size() && userAttributesArray_[i].attributeName() == name) {
      userAttributesArray_[i] = fresh;
    }
  }
  if (!found) {
    const auto known =
        std::find_if(userAttributesArray_.begin(), userAttributesArray_.end(),
                     [&](const ZRUserAttribute& attribute) { return attribute.attributeName() == name; });
    if (known == userAttributesArray_.end()) {
      userAttributesArray_.push_back(fresh);
    } else {
      *known = fresh;
    }
  }
  return true;
}

std::optional<Dictionary> ZRUserAttributeData::getIdentifierDict() const {
  std::optional<Dictionary> identifiers;
  for (const ZRUserAttribute& attribute : userAttributesArray()) {
    const bool isUniqueID = attribute.attributeName() == USER_ATTRIBUTE_UNIQUE_ID;
    if (!isUniqueID && attribute.attributeName() != USER_ATTRIBUTE_SEGMENT_ID) continue;
    if (!identifiers) identifiers.emplace();
    identifiers->setObjectNilHandledForKey(attribute.attributeValue(),
                                           isUniqueID ? kIdentifierKeyUserID : kIdentifierKeySegmentID);
  }
  return identifiers;
}

Value ZRUserAttributeData::getUserAttrUniqueID() const {
  platform::MutexLock lock(mutex_);
  const auto found = std::find_if(
      userAttributesArray_.begin(), userAttributesArray_.end(),
      [](const ZRUserAttribute& attribute) { return attribute.attributeName() == USER_ATTRIBUTE_UNIQUE_ID; });
  return found == userAttributesArray_.end() ? Value() : found->attributeValue();
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
