// The cache of user attributes: what was last sent, and when.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttribute.h"

namespace zorvane {

// Thread-safe. Changes are in memory only; the owner writes the cache to disk.
class ZRUserAttributeData {
 public:
  static constexpr std::string_view kClassName = "ZRUserAttributeData";

  ZRUserAttributeData() = default;
  // Archive key "zrv_usr_attributes". Elements of other classes are skipped.
  static std::shared_ptr<ZRUserAttributeData> initWithCoder(const platform::ArchivedObject& coder);
  std::shared_ptr<platform::ArchivedObject> encodeWithCoder() const;

  // Caches the value. True if it must be sent: the name is new, the value changed, or its caching duration ran out.
  // When several threads bring the same value at a time, only one gets true. Throws what
  // the host's clock throws.
  bool saveAttributeWithValue(const std::string& name, const Value& value);

  // {"zrv_user_id", "segment_id"}, each if cached; absent if neither is.
  std::optional<Dictionary> getIdentifierDict() const;
  // Nil if not cached.
  Value getUserAttrUniqueID() const;

  // A copy: one attribute per name, in the order of first setting.
  std::vector<ZRUserAttribute> userAttributesArray() const;
  void setUserAttributesArray(std::vector<ZRUserAttribute> attributes);

 private:
  mutable platform::Mutex mutex_;
  std::vector<ZRUserAttribute> userAttributesArray_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
