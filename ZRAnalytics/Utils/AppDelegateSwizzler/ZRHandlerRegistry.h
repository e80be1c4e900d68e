// Handlers by class name and operation name, which can be looked up, replaced and added at run time.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

using ZRHandler = std::function<Value(const Array& arguments)>;
// Two are equal if they point to the same handler.
using ZRImplementation = std::shared_ptr<const ZRHandler>;
// The names of the operations that a protocol declares as optional.
using ZRProtocol = std::set<std::string, std::less<>>;

// Main thread only.
class ZRHandlerRegistry {
 public:
  // One per process, never destroyed. Empty until a host adds its classes.
  static ZRHandlerRegistry& sharedRegistry();

  void addClass(std::string_view className);
  bool hasOperation(std::string_view className, std::string_view operation) const;
  // What a call of the operation runs: its handler, or, if the class does not have the operation, a forwarding handler
  // that does nothing and returns nil. Null only if a null handler was added.
  ZRImplementation implementation(std::string_view className, std::string_view operation) const;
  // False, without a change, if there is no such class or it already has the operation.
  bool addOperation(std::string_view className, std::string_view operation, const ZRImplementation& implementation);
  // Returns the previous implementation. Null, without a change, if the class does not have the operation.
  ZRImplementation replaceImplementation(std::string_view className, std::string_view operation,
                                         ZRImplementation implementation);

 private:
  using Operations = std::map<std::string, ZRImplementation, std::less<>>;
  const ZRImplementation* find(std::string_view className, std::string_view operation) const;

  std::map<std::string, Operations, std::less<>> classes_;
};

}  // namespace zorvane
