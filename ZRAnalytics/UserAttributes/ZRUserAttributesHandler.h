// The one entry for user attributes: validity, what was sent already, the unique ID and its changes.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributeData.h"
#include "ZRAnalytics/Utils/ZRArchiving.h"

namespace zorvane {

// Any thread. An attribute that is accepted becomes an "EVENT_ACTION_USER_ATTRIBUTE" event. The cache is kept in
// "ZrvData/ZRUserAttributes" below the SDK's library directory, written when the application leaves the foreground,
// after an alias and after the migration of a legacy file.
class ZRUserAttributesHandler {
 public:
  static ZRUserAttributesHandler& sharedHandler();

  // Login. The value's "%@" text without spaces and tabs around it; a restricted one is ignored. Another ID than the
  // cached one logs the old user out first: logout event, reset flush, new-user notification, then the new ID.
  void setUserAttributeUniqueID(const Value& value);
  // Alias: renames the current user without a logout.
  void updateUserAttributeUniqueID(const Value& value);
  void forceResetUserWithNewUserAttributeUniqueID(const std::string& uniqueID);

  // Text or a number. With checkStorage only what changed, or whose caching duration ran out, is sent. True when an
  // event was tracked. Gates: SDK enabled; data tracking enabled (but for "ZORVANE_PUSH_OPTED_OUT").
  bool setUserAttributeValueWithNameCheckStorage(const Value& value, const Value& name, bool checkStorage);
  // Each call sends an event. Seconds since 1970; degrees. Gate: SDK enabled.
  void setUserAttributeTimestampForKey(double secondsSince1970, const Value& name);
  void setUserAttributeLocationLatitudeLongitudeForKey(double latitude, double longitude, const Value& name);
  // The six "LOCALE_" attributes, as user and as device attributes; unknown ones are skipped.
  void trackLocale();

  // {"zrv_user_id", "segment_id"}; absent when neither is known.
  std::optional<Dictionary> getIdentifierDictionary();
  std::vector<ZRUserAttribute> getUserAttributesArray() const;
  bool isAValidUserAttributeValueForKey(const Value& value, const Value& name);

  void clearUserAttributesData();
  // Forgets the SDK's identifier of the user, the failed device registration and the advertising identifier.
  void clearUserDefaultsOnLogout();
  void persistUserAttributesData();

  std::string getFilePathForUserAttribute() const;
  // "ZorvaneUserAttributes.plist" in the documents directory, left by an older release.
  std::string userAttributePlistFilePath() const;
  bool checkIfUserAttributePlistExists() const;
  // Nil when there is no readable file with a dictionary.
  Value contentOfUserAttributePlist() const;
  Value getZrvUserUniqueIDFromPlist() const;
  Value getSegAnonymousIDFromPlist() const;
  void userAttributeRemovePlistFile();
  // Caches the legacy file's two identifiers, without an event, and removes it.
  void migrateLegacyPlistValuesToNewFile();

  // Observer of the will-resign-active notification.
  void applicationInActive();

 private:
  ZRUserAttributesHandler();
  std::shared_ptr<ZRUserAttributeData> userAttributeData() const;
  void flushForcedReset(const std::string& uniqueID);
  void finishForcedReset(const Value& requested);

  mutable platform::Mutex dataMutex_;
  // Never null.
  std::shared_ptr<ZRUserAttributeData> userAttributeData_ ZR_GUARDED_BY(dataMutex_);
  ZRArchiveWriter archive_;
};

}  // namespace zorvane
