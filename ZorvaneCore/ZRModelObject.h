// Base class of objects that are built from a dictionary of the service.
#pragma once

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Immutable after construction.
class ZRModelObject {
 public:
  virtual ~ZRModelObject() = default;

 protected:
  ZRModelObject() = default;
  // Reads nothing from the dictionary; subclasses read their keys.
  explicit ZRModelObject(const Dictionary& /*dictionary*/) {}
  ZRModelObject(const ZRModelObject&) = default;
  ZRModelObject& operator=(const ZRModelObject&) = default;
};

}  // namespace zorvane
