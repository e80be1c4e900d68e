// Single values in the SDK defaults store.
#pragma once

#include <string_view>
#include <utility>

#include "ZorvaneCore/ZRCoreTypes.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {

// Both write the store to disk at once and ignore a write error: the next write holds the change too. Any thread.
inline void keepInDefaults(Value value, std::string_view key,
                           platform::Durability durability = platform::Durability::Lasting) {
  platform::DefaultsStore& defaults = ZRCoreUtils::getSDKUserDefault();
  defaults.setObjectForKey(std::move(value), key, durability);
  (void)defaults.synchronize();
}

inline void removeFromDefaults(std::string_view key, platform::Durability durability = platform::Durability::Lasting) {
  platform::DefaultsStore& defaults = ZRCoreUtils::getSDKUserDefault();
  defaults.removeObjectForKey(key, durability);
  (void)defaults.synchronize();
}

}  // namespace zorvane
