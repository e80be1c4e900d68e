#include "ZRAnalytics/UserAttributes/ZRUserAttributeData.h"

#include <algorithm>
#include <utility>

#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"

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
  const std::int64_t duration = ZRConfigDataManager::sharedInstance().getUserAttributeCachingDuration();
  const ZRUserAttribute fresh = *ZRUserAttribute::initWithAttributeAndValue(name, value);
  bool found = false;
  // Replaced attributes with the reason, to be logged after the lock is released.
  std::vector<std::pair<ZRUserAttribute, ZRUserAttribute::Update>> replaced;
  {
    platform::MutexLock lock(mutex_);
    for (ZRUserAttribute& known : userAttributesArray_) {
      if (known.attributeName() != name) continue;
      found = true;
      const auto update = known.updateWithNewValue(value, duration, *fresh.lastTracked());
      if (update != ZRUserAttribute::Update::None) replaced.emplace_back(std::exchange(known, fresh), update);
    }
    if (!found) userAttributesArray_.push_back(fresh);
  }
  for (const auto& [old, update] : replaced) old.logUpdate(update, value, duration);
  if (!found || !replaced.empty()) return true;
  logLine("UserAttribute(%@) wasn't updated as the value(%@) is same.", {name, value});
  return false;
}

std::optional<Dictionary> ZRUserAttributeData::getIdentifierDict() const {
  std::optional<Dictionary> identifiers;
  platform::MutexLock lock(mutex_);
  for (const ZRUserAttribute& attribute : userAttributesArray_) {
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
