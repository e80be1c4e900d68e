// The core's constants: keys of the SDK defaults store, notification names, date patterns, services.
#pragma once

#include <cstdint>
#include <string_view>

namespace zorvane {

// Keys of the SDK defaults store.
inline constexpr std::string_view kUserDefaultsKeySDKVersion = "ZRV_SDK_Version";                // text
inline constexpr std::string_view kUserDefaultsKeyHasDeviceAddFailed = "ZRV_Device_Add_Failed";  // bool
inline constexpr std::string_view kUserDefaultsKeySDKUniqueId = "ZRV_SDK_Unique_ID";             // text

inline constexpr std::string_view kNotificationNameInitNewUser = "ZRVInitNewUser";
inline constexpr std::string_view kNotificationNameUpdateModules = "ZRVUpdateModules";
inline constexpr std::string_view kNotificationNameUserReset = "ZRVUserReset";

inline constexpr std::string_view kZRDateFormatISO8601 = "yyyy-MM-dd'T'HH:mm:ss'Z'";
inline constexpr std::string_view kZRDateFormatISO8601MilliSec = "yyyy-MM-dd'T'HH:mm:ss.SSS'Z'";
inline constexpr std::string_view kZRDateFormatShort = "yyyy-MM-dd";

// The collection service's endpoints.
inline constexpr std::int64_t kServiceDeviceAdd = 1;
inline constexpr std::int64_t kServiceReportAdd = 2;

}  // namespace zorvane
