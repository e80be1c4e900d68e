// The interface by which other modules of the SDK observe tracked events.
#pragma once

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Implemented by another module; held weakly.
class ZREventTriggerDelegate {
 public:
  virtual ~ZREventTriggerDelegate() = default;
  // Called for each recorded event on the events handler's queue, with a copy of the event record. Both delegates get
  // the same copy: the second sees changes by the first; the record itself stays unchanged. The default does nothing.
  virtual void eventTrackedWithNameAndEventAttr(const Value& /*eventName*/, Dictionary& /*eventAttr*/) {}
};

}  // namespace zorvane
