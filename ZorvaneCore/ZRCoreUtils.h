// Facts of the application, the device and the SDK's own state.
#pragma once

#include <optional>
#include <string>

#include "Platform/Files/DefaultsStore.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Class operations only; any thread.
class ZRCoreUtils {
 public:
  static bool isSDKEnabled();
  static bool isAppDelegateProxyEnabled();

  // The install mark: set once, kept even when the SDK defaults store is cleared.
  static bool installRegistered();
  static void registerInstall();

  // The identifier of this user on this device; made at the first call and after each clean-up of the user. Absent when
  // the core has none to give.
  static std::optional<std::string> getSDKUniqueIdForUser();
  // The vendor identifier; empty when the configuration has none.
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
