// The entry for user attributes: validation, resending, the unique ID and its changes.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Dispatch/LockedValue.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributeData.h"
#include "ZRAnalytics/Utils/ZRArchiving.h"
#include "ZRAnalytics/Utils/ZRTurn.h"

namespace zorvane {

// Any thread; nothing here throws. Each accepted attribute is tracked as an "EVENT_ACTION_USER_ATTRIBUTE" event. The
// cache of sent attributes is stored in "ZrvData/ZRUserAttributes" below the SDK's library directory: when the
// application leaves the foreground, after an alias and after the migration of a legacy file, when it is emptied, and
// when a login has taken effect that was stored in the defaults.
class ZRUserAttributesHandler {
 public:
  static ZRUserAttributesHandler& sharedHandler();

  // Login. Takes the value's "%@" text without surrounding spaces and tabs; a restricted ID is ignored. If another ID
  // is cached, the old user is logged out first, see below. Gate: SDK, with a log line.
  void setUserAttributeUniqueID(const Value& value);
  // Alias: renames the current user without a logout and writes the cache. The event names the old ID, or "(null)".
  void updateUserAttributeUniqueID(const Value& value);
  // Logs the current user out and the new one in: tracks the logout event, flushes with reset, posts the new-user
  // notification and sets the unique ID that was requested last. The last two steps run on a global queue, twice if the
  // flush completes twice (ZRSync::flush). From this call on, until the ID is in the cache's file and no reset is
  // pending, it is also stored in the SDK defaults under "Zrv_MODIFIED_USER_ID", so that the next launch can finish.
  void forceResetUserWithNewUserAttributeUniqueID(const std::string& uniqueID);
  // Finishes a forced logout that an earlier launch could not finish: logs the stored ID in. Does nothing while a reset
  // is pending, which will do that.
  static void applyStoredUniqueID();

  // A reset of the user that is on its way to its flush. Ends with end() or with its last owner. Any thread.
  class PendingReset {
   public:
    explicit PendingReset(std::atomic<int>& count) : count_(count) { ++count_; }
    ~PendingReset() { end(); }
    PendingReset(const PendingReset&) = delete;
    PendingReset& operator=(const PendingReset&) = delete;
    void end() {
      if (!ended_.exchange(true)) --count_;
    }

   private:
    std::atomic<int>& count_;
    std::atomic<bool> ended_{false};
  };
  // Call when a user reset begins: forgets the requested unique ID. Pass the result to endReset().
  std::shared_ptr<PendingReset> beginReset();
  // Call when that reset's flush has completed. If somebody logged in since beginReset, sets that ID again, because the
  // reset cleared it.
  void endReset(PendingReset& reset);

  // The value must be text or a number. With checkStorage it is sent only if it changed or its caching duration ran
  // out. True if an event was tracked. Gates: SDK; data tracking, except for "ZORVANE_PUSH_OPTED_OUT".
  bool setUserAttributeValueWithNameCheckStorage(const Value& value, const Value& name, bool checkStorage);
  // Each call tracks an event. Seconds since 1970; degrees. Gate: SDK.
  void setUserAttributeTimestampForKey(double secondsSince1970, const Value& name);
  void setUserAttributeLocationLatitudeLongitudeForKey(double latitude, double longitude, const Value& name);
  // Sends the six "LOCALE_" attributes that changed, as user and as device attributes. Unknown ones are skipped.
  void trackLocale();

  // {"zrv_user_id", "segment_id"}, each if cached; absent if neither is.
  std::optional<Dictionary> getIdentifierDictionary();
  // The cache itself; never null. Another one takes its place when the user's data is cleared.
  std::shared_ptr<ZRUserAttributeData> userAttributeData() const;
  // A copy of the cache.
  std::vector<ZRUserAttribute> getUserAttributesArray() const;
  // Whether the name is present and the value is text or a number; logs what is wrong.
  bool isAValidUserAttributeValueForKey(const Value& value, const Value& name);

  // Empties the cache and its file. The unique ID that is wanted stays.
  void clearUserAttributesData();
  // After an opt-out: also forgets the unique ID that is wanted, and the stored one.
  void forgetUser();
  // Removes "ZRV_SDK_Unique_ID", "ZRV_Device_Add_Failed" and "ZRV_ADVERTISING_ID" from the SDK defaults.
  void clearUserDefaultsOnLogout();
  // Writes the cache to its file on this thread. A write error is logged.
  void persistUserAttributesData();

  std::string getFilePathForUserAttribute() const;
  // "ZorvaneUserAttributes.plist" in the documents directory, left by an older release.
  std::string userAttributePlistFilePath() const;
  bool checkIfUserAttributePlistExists() const;
  // The file's dictionary; nil if it is missing, unreadable or no dictionary.
  Value contentOfUserAttributePlist() const;
  // The file's two identifiers; nil if missing.
  Value getZrvUserUniqueIDFromPlist() const;
  Value getSegAnonymousIDFromPlist() const;
  // Logs an error.
  void userAttributeRemovePlistFile();
  // If the legacy file exists: caches its two identifiers without an event, writes the cache, removes the file.
  void migrateLegacyPlistValuesToNewFile();

  // Observer of the will-resign-active notification, whose name is ignored: writes the cache.
  void applicationInActive(std::string_view notification = {});

 private:
  ZRUserAttributesHandler();
  void flushForcedReset(const std::shared_ptr<PendingReset>& reset);
  void finishForcedReset();
  // Sets the requested unique ID, if there is one. True if an event was tracked.
  bool setRequestedUniqueIDAgain();
  // Whether a reset is posted, running or parked.
  bool isResetPending() const;
  std::optional<std::string> requestedUniqueID() const;
  void setRequestedUniqueID(std::optional<std::string> uniqueID);
  // Forgets the requested unique ID until the next login.
  void forgetRequestedUniqueID();
  // "Zrv_MODIFIED_USER_ID" in the SDK defaults.
  void storeRequestedUniqueID();
  // Stores the wanted ID if an older one is stored or a reset is pending.
  void keepStoredUniqueIDInStep();
  void removeStoredUniqueIDUnlessResetPending();
  bool writeCache();

  // Never null.
  platform::LockedValue<std::shared_ptr<ZRUserAttributeData>> userAttributeData_;
  // The unique ID of the last login or alias; absent before the first one and after a logout.
  platform::LockedValue<std::optional<std::string>> requestedUniqueID_;
  // Held while the stored unique ID is compared with the wanted one and written.
  ZRTurn storedIDTurn_;
  // A power loss may undo the removal of the stored ID.
  std::atomic<bool> isRemovalEventual_{false};
  // Resets that still wait for the first completion of their flush.
  std::atomic<int> pendingResets_{0};
  ZRArchiveWriter archive_;
};

}  // namespace zorvane
