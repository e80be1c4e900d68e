#include "ZRAnalytics/UserAttributes/ZRUserAttribute.h"

#include <cmath>

#include "Platform/HostServices.h"
#include "ZRAnalytics/Utils/ZRArchiving.h"
#include "ZRAnalytics/Utils/ZRPlainValue.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRDateUtils.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZRUserAttribute";
constexpr std::string_view kNameKey = "zrv_usr_attr_name";
constexpr std::string_view kValueKey = "zrv_usr_attr_val";
constexpr std::string_view kTrackedDateKey = "zrv_usr_attr_tracked_date";

bool isNaN(const Value& value) {
  const double* number = value.asDouble();
  return number && std::isnan(*number);
}

// As ==, but not-a-number equals itself: otherwise it would be sent again each time.
bool isSameValue(const Value& left, const Value& right) {
  return left == right || (isNaN(left) && isNaN(right));
}

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
  coder->encodeObject(kValueKey, withoutObjects(attributeValue_, {kFile, "encodeWithCoder"}));
  coder->encodeObject(kTrackedDateKey, valueOf(lastTracked_));
  return coder;
}

ZRUserAttribute::Update ZRUserAttribute::updateWithNewValue(const Value& newValue, std::int64_t cachingDuration,
                                                            Date now) const {
  if (newValue.isNil() || !isSameValue(newValue, attributeValue_)) return Update::ValueChanged;
  std::optional<Date> expiry;
  if (lastTracked_) expiry = Date{lastTracked_->secondsSince1970 + static_cast<double>(cachingDuration)};
  return ZRDateUtils::isDate1EarlierToDate2(expiry, now) ? Update::DurationExpired : Update::None;
}

void ZRUserAttribute::logUpdate(Update update, const Value& newValue, std::int64_t cachingDuration) const {
  if (update == Update::ValueChanged) {
    logLine("Attribute value changed from (%@) to (%@)", {attributeValue_, newValue});
  } else if (update == Update::DurationExpired) {
    logLine("Caching duration(%ld) expired for User Attribute. \n Was last tracked on %@",
            {cachingDuration, valueOf(lastTracked_)});
  }
}

bool ZRUserAttribute::shouldUpdateAttributeWithNewValue(const Value& newValue) const {
  const std::int64_t duration = ZRConfigDataManager::sharedInstance().getUserAttributeCachingDuration();
  const Update update = updateWithNewValue(newValue, duration, platform::hostServices().clock->now());
  logUpdate(update, newValue, duration);
  return update != Update::None;
}

}  // namespace zorvane
