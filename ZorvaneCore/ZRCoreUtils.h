// The SDK's state, and properties of the application and the device.
#pragma once

#include <optional>
#include <string>

#include "Platform/Files/DefaultsStore.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Static operations only; any thread.
class ZRCoreUtils {
 public:
  static bool isSDKEnabled();
  static bool isAppDelegateProxyEnabled();

  // The installation flag: set once, kept even if the SDK defaults store is cleared.
  static bool installRegistered();
  static void registerInstall();

  // The SDK's identifier of this user on this device; generated at the first call and anew after each reset of the
  // user. Absent if the configuration says none.
  static std::optional<std::string> getSDKUniqueIdForUser();
  // The vendor identifier. This and the following come from the configuration and may be empty.
  static std::string getIDFV();
  static std::string getDeviceModel();
  static std::string getDeviceName();
  static std::string getDeviceSystemVersion();
  static std::string appVersion();
  static std::string getZorvaneSDKVersion();

  // Lower-case hexadecimal digits without separators.
  static std::string hexTokenForData(const Data& data);

  static std::string getDocumentsDirectoryPath();
  static std::string getSDKLibraryDirectoryPath();
  static platform::DefaultsStore& getSDKUserDefault();
};

}  // namespace zorvane
