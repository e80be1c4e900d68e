#include "ZRAnalytics/Utils/AppDelegateSwizzler/ZRHandlerRegistry.h"

#include <utility>

namespace zorvane {

ZRHandlerRegistry& ZRHandlerRegistry::sharedRegistry() {
  static ZRHandlerRegistry* const shared = new ZRHandlerRegistry;
  return *shared;
}

void ZRHandlerRegistry::addClass(std::string_view className) {
  classes_.try_emplace(std::string(className));
}

const ZRImplementation* ZRHandlerRegistry::find(std::string_view className, std::string_view operation) const {
  const auto operations = classes_.find(className);
  if (operations == classes_.end()) return nullptr;
  const auto found = operations->second.find(operation);
  return found == operations->second.end() ? nullptr : &found->second;
}

bool ZRHandlerRegistry::hasOperation(std::string_view className, std::string_view operation) const {
  return find(className, operation) != nullptr;
}

ZRImplementation ZRHandlerRegistry::implementation(std::string_view className, std::string_view operation) const {
  static const auto* const forwarding =
      new ZRImplementation(std::make_shared<const ZRHandler>([](const Array&) { return Value(); }));
  const ZRImplementation* const found = find(className, operation);
  return found ? *found : *forwarding;
}

bool ZRHandlerRegistry::addOperation(std::string_view className, std::string_view operation,
                                     const ZRImplementation& implementation) {
  const auto operations = classes_.find(className);
  return operations != classes_.end() && operations->second.try_emplace(std::string(operation), implementation).second;
}

ZRImplementation ZRHandlerRegistry::replaceImplementation(std::string_view className, std::string_view operation,
                                                          ZRImplementation implementation) {
  if (!hasOperation(className, operation)) return nullptr;
  return std::exchange(classes_.find(className)->second.find(operation)->second, std::move(implementation));
}

}  // namespace zorvane
