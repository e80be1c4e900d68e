#include "ZorvaneCore/ZorvaneCore.h"

#include <utility>

#include "Platform/HostServices.h"
#include "ZorvaneCore/RemoteConfiguration.h"

namespace zorvane {

ZorvaneCore& ZorvaneCore::sharedInstance() {
  static ZorvaneCore* const core = new ZorvaneCore;
  return *core;
}

void ZorvaneCore::setAppIdUpdateDelegate(std::weak_ptr<ZRAppIDUpdateDelegate> delegate) {
  delegate_.set(std::move(delegate));
}

std::shared_ptr<ZRAppIDUpdateDelegate> ZorvaneCore::appIdUpdateDelegate() const {
  return delegate_.get().lock();
}

bool ZorvaneCore::isDeviceUniqueIDPresentInKeyChain() const {
  return CoreState::shared().configuration()->device_id_in_secure_store;
}

ZRSDKConfiguration ZorvaneCore::getDefaultSDKConfiguration() const {
  return CoreState::shared().sdkConfiguration();
}

void ZorvaneCore::updateSDKConfigWithCompletionBlock(const ZRSDKConfiguration& configuration,
                                                     std::function<void()> completion) {
  CoreState::shared().setSdkConfiguration(configuration);
  if (completion) {
    platform::hostServices().scheduler->globalQueue(platform::Priority::Default).async(std::move(completion));
  }
}

}  // namespace zorvane
