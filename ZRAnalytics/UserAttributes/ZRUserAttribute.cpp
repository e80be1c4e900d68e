#include "ZRAnalytics/UserAttributes/ZRUserAttribute.h"

#include "Platform/HostServices.h"
#include "ZRAnalytics/Utils/ZRArchiving.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRDateUtils.h"

namespace zorvane {
namespace {

constexpr std::string_view kNameKey = "zrv_usr_attr_name";
constexpr std::string_view kValueKey = "zrv_usr_attr_val";
constexpr std::string_view kTrackedDateKey = "zrv_usr_attr_tracked_date";

}  // namespace

std::shared_ptr<ZRUserAttribute> ZRUserAttribute::initWithAttributeAndValue(std::string name, Value value) {
  auto attribute = std::make_shared<ZRUserAttribute>();
  attribute->attributeName_ = std::move(name);
  attribute->attributeValue_ = std::move(value);
  attribute->lastTracked_ = platform::hostServices().clock->now();
  return attribute;
}

std::shared_ptr<ZRUserAttribute> ZRUserAttribute::initWithCoder(const platform::ArchivedObject& coder) {
  auto attribute = std::make_shared<ZRUserAttribute>();
  if (const Value name = coder.decodeObject(kNameKey); name.isString()) attribute->attributeName_ = *name.asString();
  attribute->attributeValue_ = coder.decodeObject(kValueKey);
  attribute->lastTracked_ = dateOfValue(coder.decodeObject(kTrackedDateKey));
  return attribute;
}

std::shared_ptr<platform::ArchivedObject> ZRUserAttribute::encodeWithCoder() const {
  auto coder = std::make_shared<platform::ArchivedObject>(std::string(kClassName));
  coder->encodeObject(kNameKey, attributeName_);
  coder->encodeObject(kValueKey, attributeValue_);
  coder->encodeObject(kTrackedDateKey, valueOfDate(lastTracked_));
  return coder;
}

bool ZRUserAttribute::shouldUpdateAttributeWithNewValue(const Value& newValue) const {
  const std::int64_t duration = ZRConfigDataManager::sharedInstance().getUserAttributeCachingDuration();
  if (newValue.isNil() || !(newValue == attributeValue_)) {
    logLine("Attribute value changed from (%@) to (%@)", {attributeValue_, newValue});
    return true;
  }
  std::optional<Date> expiry;
  if (lastTracked_) expiry = Date{lastTracked_->secondsSince1970 + static_cast<double>(duration)};
  if (!ZRDateUtils::isDate1EarlierToDate2(expiry, platform::hostServices().clock->now())) return false;
  logLine("Caching duration(%ld) expired for User Attribute. \n Was last tracked on %@",
          {duration, valueOfDate(lastTracked_)});
  return true;
}

}  // namespace zorvane
