#include "ZRAnalytics/DeviceAttribute/ZRDeviceAttributesHandler.h"

#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZRDeviceAttributesHandler";
constexpr char kException[] = "exception is %@";

}  // namespace

ZRDeviceAttributesHandler& ZRDeviceAttributesHandler::sharedInstance() {
  static ZRDeviceAttributesHandler* const handler = new ZRDeviceAttributesHandler;
  return *handler;
}

void ZRDeviceAttributesHandler::setDeviceAttributeForKey(const Value& value, const Value& name) {
  guarded({kFile, "setDeviceAttributeForKey"}, kException, [&] {
    if (!ZRCoreUtils::isSDKEnabled()) return;
    if (value.isNil()) {
      logLine("Tried setting nil user attribute for key %@", {name});
      return;
    }
    if (!value.isString() && !value.isNumber()) {
      logLine("The attribue value should be either of string, integer or bool");
      return;
    }
    if (name.isNil()) throw ValueError("a device attribute needs a name");
    // If the properties reject another name, the event is tracked without the attribute.
    auto properties = std::make_shared<ZRProperties>();
    properties->addAttributeWithName(value, name);
    ZREventsHandler::sharedInstance().trackEventWithProperties(kEventNameDeviceAttributeAction, std::move(properties));
  });
}

void ZRDeviceAttributesHandler::setDeviceModelAttributes() {
  guarded({kFile, "setDeviceModelAttributes"}, kException, [this] {
    setDeviceAttributeForKey(ZRCoreUtils::getDeviceModel(), "device_model");
    setDeviceAttributeForKey(ZRCoreUtils::getDeviceName(), "device_model_name");
    setDeviceAttributeForKey(ZRCoreUtils::getDeviceSystemVersion(), "os_version");
    if (ZRConfigDataManager::sharedInstance().isIDFVTrackingEnabled()) {
      setDeviceAttributeForKey(ZRCoreUtils::getIDFV(), kDeviceAttributeNameIDFV);
    }
  });
}

}  // namespace zorvane
