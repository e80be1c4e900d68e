// Base of the objects that are built from a dictionary of the service.
#pragma once

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

class ZRModelObject {
 public:
  virtual ~ZRModelObject() = default;

 protected:
  ZRModelObject() = default;
  // Takes nothing from the dictionary itself; a subclass reads its own keys.
  explicit ZRModelObject(const Dictionary& /*dictionary*/) {}
  ZRModelObject(const ZRModelObject&) = default;
  ZRModelObject& operator=(const ZRModelObject&) = default;
};

}  // namespace zorvane
