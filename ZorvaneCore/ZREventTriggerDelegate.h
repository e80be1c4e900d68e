// What other modules of the SDK implement to hear of tracked events.
#pragma once

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

class ZREventTriggerDelegate {
 public:
  virtual ~ZREventTriggerDelegate() = default;
  // Called for each recorded event, on the module's event queue, with a copy of the record that both delegates share:
  // what the first changes, the second sees. The default is a delegate that does not respond.
  virtual void eventTrackedWithNameAndEventAttr(const Value& /*eventName*/, Dictionary& /*eventAttr*/) {}
};

}  // namespace zorvane
