#include "ZorvaneCore/ZRNetworkConfiguration.h"

#include <utility>

#include "ZorvaneCore/RemoteConfiguration.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {

std::optional<Dictionary> ZRNetworkConfiguration::getQueryParamsBodyDictForService(std::int64_t /*service*/) {
  const auto current = CoreState::shared().configuration();
  if (!current->query_params) return std::nullopt;
  Dictionary parameters;
  if (auto uniqueID = ZRCoreUtils::getSDKUniqueIdForUser()) parameters.set("unique_id", *std::move(uniqueID));
  for (const auto& [key, value] : *current->query_params) parameters.set(key, value);
  return parameters;
}

}  // namespace zorvane
