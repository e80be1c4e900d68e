#include "ZorvaneCore/ZRCoreUtils.h"

#include "Platform/HostServices.h"
#include "Platform/Text/Hex.h"
#include "Platform/Text/UUID.h"
#include "ZorvaneCore/RemoteConfiguration.h"
#include "ZorvaneCore/ZRCoreConstants.h"

namespace zorvane {
namespace {

std::shared_ptr<const RemoteConfiguration> configuration() {
  return CoreState::shared().configuration();
}

std::string generatedUniqueID() {
  platform::DefaultsStore& defaults = platform::sdkDefaults();
  const Value kept = defaults.objectForKey(kUserDefaultsKeySDKUniqueId);
  if (kept.isString()) return std::string(*kept.asString());
  // Two threads that ask first at the same time get the same identifier.
  std::string uniqueID = defaults.textForKeyOrStored(kUserDefaultsKeySDKUniqueId, platform::randomUUID());
  // If the write fails, the identifier holds until the process ends.
  (void)defaults.writeChanges();
  return uniqueID;
}

}  // namespace

bool ZRCoreUtils::isSDKEnabled() {
  return CoreState::shared().isSDKEnabled();
}
bool ZRCoreUtils::isAppDelegateProxyEnabled() {
  return configuration()->app_delegate_proxy_enabled;
}

bool ZRCoreUtils::installRegistered() {
  return CoreState::shared().choice(kChoiceInstallRegistered);
}
void ZRCoreUtils::registerInstall() {
  // A power loss may undo it: the installed version, written before, tells that this is no installation.
  CoreState::shared().setChoice(kChoiceInstallRegistered, true, platform::Durability::Eventual);
}

std::optional<std::string> ZRCoreUtils::getSDKUniqueIdForUser() {
  const auto current = configuration();
  switch (current->unique_id_kind) {
    case RemoteConfiguration::UniqueID::None:
      return std::nullopt;
    case RemoteConfiguration::UniqueID::Fixed:
      return current->unique_id;
    case RemoteConfiguration::UniqueID::Generated:
      break;
  }
  return generatedUniqueID();
}

std::string ZRCoreUtils::getIDFV() {
  return configuration()->idfv;
}
std::string ZRCoreUtils::getDeviceModel() {
  return configuration()->device_model;
}
std::string ZRCoreUtils::getDeviceName() {
  return configuration()->device_name;
}
std::string ZRCoreUtils::getDeviceSystemVersion() {
  return configuration()->os_version;
}
std::string ZRCoreUtils::appVersion() {
  return configuration()->app_version;
}
std::string ZRCoreUtils::getZorvaneSDKVersion() {
  return configuration()->sdk_version;
}

std::string ZRCoreUtils::hexTokenForData(const Data& data) {
  std::string text;
  platform::appendHex(text, data.bytes);
  return text;
}

std::string ZRCoreUtils::getDocumentsDirectoryPath() {
  return platform::hostServices().directories.documents;
}
std::string ZRCoreUtils::getSDKLibraryDirectoryPath() {
  return platform::hostServices().directories.library;
}
platform::DefaultsStore& ZRCoreUtils::getSDKUserDefault() {
  return platform::sdkDefaults();
}

}  // namespace zorvane
