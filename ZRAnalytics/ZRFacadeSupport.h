// Shared by the facade's source files; not for users of the module.
#pragma once

#include "Platform/HostServices.h"
#include "ZorvaneCore/ZRConfigDataManager.h"

namespace zorvane::facade {

inline bool isAccountActive() {
  return ZRConfigDataManager::sharedInstance().isAccountActive();
}

inline platform::Queue& globalQueue(platform::Priority priority) {
  return platform::hostServices().scheduler->globalQueue(priority);
}

}  // namespace zorvane::facade
