// Exported text constants: event and attribute names, keys of reports, sessions, sources and defaults.
#pragma once

#include <string_view>

namespace zorvane {

// Events of the module itself.
inline constexpr std::string_view kEventNameSessionStart = "EVENT_ACTION_IOS_SESSION_START";
inline constexpr std::string_view kEventNameSessionEnd = "EVENT_ACTION_IOS_SESSION_END";
inline constexpr std::string_view kEventNameAppExit = "ZRV_APP_EXIT";
inline constexpr std::string_view kEventNameLogout = "ZRV_LOGOUT";
inline constexpr std::string_view kEventNameAppInstall = "INSTALL";
inline constexpr std::string_view kEventNameAppUpdate = "UPDATE";
inline constexpr std::string_view kEventNameAppReinstall = "REINSTALL";
inline constexpr std::string_view kEventNameUserAttributeAction = "EVENT_ACTION_USER_ATTRIBUTE";
inline constexpr std::string_view kEventNameDeviceAttributeAction = "EVENT_ACTION_DEVICE_ATTRIBUTE";

// User attributes: those that the module handles specially, and the standard ones for applications.
inline constexpr std::string_view USER_ATTRIBUTE_UNIQUE_ID = "USER_ATTRIBUTE_UNIQUE_ID";
inline constexpr std::string_view USER_ATTRIBUTE_SEGMENT_ID = "USER_ATTRIBUTE_SEGMENT_ID";
inline constexpr std::string_view USER_ATTRIBUTE_USER_EMAIL = "USER_ATTRIBUTE_USER_EMAIL";
inline constexpr std::string_view USER_ATTRIBUTE_USER_NAME = "USER_ATTRIBUTE_USER_NAME";
inline constexpr std::string_view USER_ATTRIBUTE_USER_FIRST_NAME = "USER_ATTRIBUTE_USER_FIRST_NAME";
inline constexpr std::string_view USER_ATTRIBUTE_USER_LAST_NAME = "USER_ATTRIBUTE_USER_LAST_NAME";
inline constexpr std::string_view USER_ATTRIBUTE_USER_MOBILE = "USER_ATTRIBUTE_USER_MOBILE";
inline constexpr std::string_view USER_ATTRIBUTE_USER_GENDER = "USER_ATTRIBUTE_USER_GENDER";
inline constexpr std::string_view USER_ATTRIBUTE_USER_BDAY = "USER_ATTRIBUTE_USER_BDAY";
inline constexpr std::string_view USER_ATTRIBUTE_USER_LOCATION = "USER_ATTRIBUTE_USER_LOCATION";
inline constexpr std::string_view kUserAttributeNameGDPRPushOptOut = "ZORVANE_PUSH_OPTED_OUT";
inline constexpr std::string_view kUserAttributeNameModifiedFrom = "USER_ID_MODIFIED_FROM";
inline constexpr std::string_view kUserAttributeNamePushPreference = "USER_PUSH_PREFERENCE";
inline constexpr std::string_view kUserAttrNameIDFA = "ADVERTISING_IDENTIFIER";
inline constexpr std::string_view kLocaleAttrNameCountry = "LOCALE_COUNTRY";
inline constexpr std::string_view kLocaleAttrNameCountryDisplay = "LOCALE_COUNTRY_DISPLAY";
inline constexpr std::string_view kLocaleAttrNameLanguage = "LOCALE_LANGUAGE";
inline constexpr std::string_view kLocaleAttrNameLaguageDisplay = "LOCALE_LANGUAGE_DISPLAY";
inline constexpr std::string_view kLocaleAttrNameDisplay = "LOCALE_DISPLAY";
inline constexpr std::string_view kLocaleAttrNameIdentifier = "LOCALE_IDENTIFIER";
inline constexpr std::string_view kDeviceAttributeNameIDFV = "device_IDFV";
inline constexpr std::string_view GENDER_MALE = "male";
inline constexpr std::string_view GENDER_FEMALE = "female";
inline constexpr std::string_view GENDER_OTHER = "other";

// The attribute name that sets or clears an event's non-interactive flag instead of being stored.
inline constexpr std::string_view kAttributeNameNonInteractive = "zrv_non_interactive";

// The event record.
inline constexpr std::string_view kReportsKeyEventName = "EVENT_ACTION";
inline constexpr std::string_view kReportsKeyEventAttrs = "EVENT_ATTRS";
inline constexpr std::string_view kReportsKeyGMT_Time = "EVENT_G_TIME";
inline constexpr std::string_view kReportsKeyDevice_Time = "EVENT_L_TIME";
inline constexpr std::string_view kReportsKeyEventCustomAttrs = "EVENT_ATTRS_CUST";
inline constexpr std::string_view kReportsKeyCustomTimestamp = "timestamp";
inline constexpr std::string_view kReportsKeyCustomLocation = "location";
inline constexpr std::string_view kReportsKeyNonInteractive = "N_I_E";

// The saved batch.
inline constexpr std::string_view kBatchKeyEvents = "events";
inline constexpr std::string_view kBatchKeyBatchID = "batch_id";
inline constexpr std::string_view kBatchKeyRequestTime = "request_time";
inline constexpr std::string_view kBatchKeySession = "session";
inline constexpr std::string_view kBatchKeySource = "source";

// The requests.
inline constexpr std::string_view kReportsKeyEventsList = "viewsInfo";
inline constexpr std::string_view kReportsKeyEventsCount = "viewsCount";
inline constexpr std::string_view kReportsKeyIdentifiers = "identifiers";
inline constexpr std::string_view kReportsKeyMeta = "meta";
inline constexpr std::string_view kReportsKeyQueryParams = "query_params";
inline constexpr std::string_view kReportsKeyRequestTime = "request_time";
inline constexpr std::string_view kReportsKeyBatchID = "bid";
inline constexpr std::string_view kReportsKeyDevPreferences = "dev_pref";
inline constexpr std::string_view kReportsKeyMetaSession = "session";
inline constexpr std::string_view kReportsKeyMetaSource = "source";
inline constexpr std::string_view kReportsKeyMetaDAR = "dev_add_res";
inline constexpr std::string_view kReportsKeyDevPrefData = "e_t_p";
inline constexpr std::string_view kReportsKeyDevPrefPush = "push_p";
inline constexpr std::string_view kReportsKeyDevPrefInApp = "in_app_p";
inline constexpr std::string_view kReportsAPIHeaderKeyRequestID = "ZRV-REQUEST-ID";
// The key of the identifier dictionary in the application group's defaults.
inline constexpr std::string_view kSharedDefaultsKeyIdentifiers = "zrv_identifiers";

// The identifier dictionary.
inline constexpr std::string_view kIdentifierKeyUserID = "zrv_user_id";
inline constexpr std::string_view kIdentifierKeySegmentID = "segment_id";

// Traffic sources: input keys, then output and archive keys.
inline constexpr std::string_view kAnalyticsUTM_Source = "utm_source";
inline constexpr std::string_view kAnalyticsUTM_CampaignID = "utm_id";
inline constexpr std::string_view kAnalyticsUTM_CampaignName = "utm_campaign";
inline constexpr std::string_view kAnalyticsUTM_Term = "utm_term";
inline constexpr std::string_view kAnalyticsUTM_Medium = "utm_medium";
inline constexpr std::string_view kAnalyticsUTM_Content = "utm_content";
inline constexpr std::string_view kAnalyticsGeneric_Source = "source";
inline constexpr std::string_view kAnalyticsGeneric_CampaignName = "campaign";
inline constexpr std::string_view kAnalyticsGeneric_Term = "term";
inline constexpr std::string_view kAnalyticsGeneric_Medium = "medium";
inline constexpr std::string_view kAnalyticsGeneric_Content = "content";
inline constexpr std::string_view kAnalyticsSourceName = "source";
inline constexpr std::string_view kAnalyticsSourceMediumName = "medium";
inline constexpr std::string_view kAnalyticsSourceURL = "source_url";
inline constexpr std::string_view kAnalyticsSourceTermName = "term";
inline constexpr std::string_view kAnalyticsSourceContent = "content";
inline constexpr std::string_view kAnalyticsSourceCampName = "campaign_name";
inline constexpr std::string_view kAnalyticsSourceCampID = "campaign_id";
inline constexpr std::string_view kAnalyticsSourceExtra = "extras";

// Sessions: wire and archive keys.
inline constexpr std::string_view kAnalyticsSessionID = "session_id";
inline constexpr std::string_view kAnalyticsSessionBgInitiated = "background_initiated";
inline constexpr std::string_view kAnalyticsSessionStartTime = "start_time";
inline constexpr std::string_view kAnalyticsSessionLastInteractionTime = "last_interaction_time";
inline constexpr std::string_view kAnalyticsSessionSources = "sources";
inline constexpr std::string_view kAnalyticsStorageCurrentSessionKey = "zrv_current_session";

// Keys of the SDK defaults store that the module owns.
inline constexpr std::string_view kUserDefaultsKeyVersionInstallStatus = "ZRV_App_Version_App_Status";
inline constexpr std::string_view kUserDefaultsKeyModifiedUserAttrUniqueID = "Zrv_MODIFIED_USER_ID";
inline constexpr std::string_view kUserDefaultsKeyIDFA = "ZRV_ADVERTISING_ID";

// The directory of the module's archives, below the SDK's library directory.
inline constexpr std::string_view kArchiveDirectoryName = "ZrvData";

}  // namespace zorvane
