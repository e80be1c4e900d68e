// Parameters common to all requests to a service.
#pragma once

#include <cstdint>
#include <optional>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Static operations only; any thread.
class ZRNetworkConfiguration {
 public:
  // The common query parameters, among them "unique_id" if there is one. Absent if the configuration says none.
  static std::optional<Dictionary> getQueryParamsBodyDictForService(std::int64_t service);
};

}  // namespace zorvane
