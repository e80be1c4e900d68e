// One cached user attribute.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Platform/Formats/KeyedArchive.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Not thread-safe: its owner (ZRUserAttributeData) guards it. An exception of the host's clock reaches the caller.
class ZRUserAttribute {
 public:
  static constexpr std::string_view kClassName = "ZRUserAttribute";

  // Sets lastTracked to now.
  static std::shared_ptr<ZRUserAttribute> initWithAttributeAndValue(std::string name, Value value);
  // Archive keys "zrv_usr_attr_name", "zrv_usr_attr_val", "zrv_usr_attr_tracked_date".
  static std::shared_ptr<ZRUserAttribute> initWithCoder(const platform::ArchivedObject& coder);
  std::shared_ptr<platform::ArchivedObject> encodeWithCoder() const;

  enum class Update { None, ValueChanged, DurationExpired };
  // Whether the value must be sent, and why. The caching duration is in seconds.
  Update updateWithNewValue(const Value& newValue, std::int64_t cachingDuration, Date now) const;
  // Logs the reason; nothing for None.
  void logUpdate(Update update, const Value& newValue, std::int64_t cachingDuration) const;
  // Both in one call, with the configured duration and the current time. True if the value must be sent.
  bool shouldUpdateAttributeWithNewValue(const Value& newValue) const;

  const std::string& attributeName() const { return attributeName_; }
  void setAttributeName(std::string name) { attributeName_ = std::move(name); }
  const Value& attributeValue() const { return attributeValue_; }
  void setAttributeValue(Value value) { attributeValue_ = std::move(value); }
  // When the value was last accepted for sending. An attribute without this date never expires.
  std::optional<Date> lastTracked() const { return lastTracked_; }
  void setLastTracked(std::optional<Date> date) { lastTracked_ = date; }

 private:
  std::string attributeName_;
  Value attributeValue_;
  std::optional<Date> lastTracked_;
};

}  // namespace zorvane
