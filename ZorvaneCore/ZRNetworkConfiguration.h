// What every request to a service carries.
#pragma once

#include <cstdint>
#include <optional>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Class operations only; any thread.
class ZRNetworkConfiguration {
 public:
  // The common query parameters, "unique_id" among them; absent when the core has none to give.
  static std::optional<Dictionary> getQueryParamsBodyDictForService(std::int64_t service);
};

}  // namespace zorvane
