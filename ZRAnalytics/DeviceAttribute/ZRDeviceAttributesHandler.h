// Attributes that describe the device, not the user.
#pragma once

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Any thread; nothing here throws. Each call tracks an "EVENT_ACTION_DEVICE_ATTRIBUTE" event: values are not cached,
// and there is no data-tracking gate.
class ZRDeviceAttributesHandler {
 public:
  static ZRDeviceAttributesHandler& sharedInstance();

  // The value must be text or a number; others are dropped with a log line. Without a name nothing is sent; that is
  // logged as an error. Gate: SDK.
  void setDeviceAttributeForKey(const Value& value, const Value& name);
  // Sends "device_model", "device_model_name", "os_version" and, if vendor-identifier tracking is enabled,
  // "device_IDFV".
  void setDeviceModelAttributes();

 private:
  ZRDeviceAttributesHandler() = default;
};

}  // namespace zorvane
