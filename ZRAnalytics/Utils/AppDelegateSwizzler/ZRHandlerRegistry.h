// Handlers of classes, by class name and operation name: looked up, replaced and added while the application runs.
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
// Two are the same when they point to the same handler.
using ZRImplementation = std::shared_ptr<const ZRHandler>;
// The names of the operations that a protocol declares as optional.
using ZRProtocol = std::set<std::string, std::less<>>;

// Main thread only.
class ZRHandlerRegistry {
 public:
  // The process's; never destroyed. Empty until a host adds its classes.
  static ZRHandlerRegistry& sharedRegistry();

  void addClass(std::string_view className);
  bool hasOperation(std::string_view className, std::string_view operation) const;
  // What a call of the operation runs: its handler, or for an operation that the class does not have the class's
  // forwarding one, which does nothing and answers nil. Never null but for a null handler that was put there.
  ZRImplementation implementation(std::string_view className, std::string_view operation) const;
  // False, and nothing changes, without such a class or when it has the operation.
  bool addOperation(std::string_view className, std::string_view operation, const ZRImplementation& implementation);
  // The implementation so far; null, and nothing changes, when the class does not have the operation.
  ZRImplementation replaceImplementation(std::string_view className, std::string_view operation,
                                         ZRImplementation implementation);

 private:
  using Operations = std::map<std::string, ZRImplementation, std::less<>>;
  const ZRImplementation* find(std::string_view className, std::string_view operation) const;

  std::map<std::string, Operations, std::less<>> classes_;
};

}  // namespace zorvane
