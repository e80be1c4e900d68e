// The cache of user attributes: what was last sent, and when.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttribute.h"

namespace zorvane {

// Thread-safe. Changes are in memory only; whoever holds the cache persists it.
class ZRUserAttributeData {
 public:
  static constexpr std::string_view kClassName = "ZRUserAttributeData";

  ZRUserAttributeData() = default;
  // Archive key "zrv_usr_attributes". What is no attribute in there is skipped.
  static std::shared_ptr<ZRUserAttributeData> initWithCoder(const platform::ArchivedObject& coder);
  std::shared_ptr<platform::ArchivedObject> encodeWithCoder() const;

  // Remembers the value. True when it is to be sent: the name is new, the value changed, or its caching duration ran
  // out. Of several threads that bring one value at a time one is told so.
  bool saveAttributeWithValue(const std::string& name, const Value& value);

  // {"zrv_user_id", "segment_id"}, each where cached; absent when neither is.
  std::optional<Dictionary> getIdentifierDict() const;
  // Nil when not cached.
  Value getUserAttrUniqueID() const;

  // Copies, one per name, in the order of first setting.
  std::vector<ZRUserAttribute> userAttributesArray() const;
  void setUserAttributesArray(std::vector<ZRUserAttribute> attributes);

 private:
  mutable platform::Mutex mutex_;
  std::vector<ZRUserAttribute> userAttributesArray_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
