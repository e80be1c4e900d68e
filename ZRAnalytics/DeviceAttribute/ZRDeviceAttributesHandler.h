// Attributes that describe the device, not the user.
#pragma once

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Every call sends an event: nothing is remembered, and no data-tracking choice is asked. Any thread.
class ZRDeviceAttributesHandler {
 public:
  static ZRDeviceAttributesHandler& sharedInstance();

  // Text or a number. Only with the SDK enabled; other values are logged and dropped.
  void setDeviceAttributeForKey(const Value& value, const Value& name);
  // "device_model", "device_model_name", "os_version" and, where vendor-identifier tracking is enabled, "device_IDFV".
  void setDeviceModelAttributes();

 private:
  ZRDeviceAttributesHandler() = default;
};

}  // namespace zorvane
