// The remote configuration and the choices over it, read at each call.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

class ZREventJournal;

// Thread-safe.
class ZRConfigDataManager {
 public:
  static ZRConfigDataManager& sharedInstance();

  bool isAccountActive() const;
  // False too if opted out.
  bool isDataTrackingEnabled() const;
  bool isIDFVTrackingEnabled() const;
  bool isIDFATrackingEnabled() const;
  bool isPushNotificationEnabled() const;
  bool isInAppEnabled() const;
  // False too if disabled by the application.
  bool isPeriodicFlushEnabled() const;

  // CoreSetup::journal; never destroyed.
  ZREventJournal* getEventJournal() const;

  // Exact matches.
  bool isEventWhitelistedEvent(std::string_view name) const;
  bool isEventBlackListed(std::string_view name) const;
  bool isEventInstantFlushEvent(std::string_view name) const;
  bool isUniqueIDRestricted(std::string_view uniqueID) const;

  // Events; 0 if not configured.
  std::int64_t getEventBatchCount() const;
  // Seconds.
  std::int64_t getPeriodicFlushDuration() const;
  std::int64_t getMinimumPeriodicFlushDurationLimit() const;
  std::int64_t getUserAttributeCachingDuration() const;
  std::int64_t getSessionInActiveDuration() const;

  // Absent if empty.
  std::optional<std::string> getZrvAppID() const;
  std::optional<std::string> getAppGroupID() const;
  // Texts.
  Array getSourceExtraKeys() const;

  // False while the application's choices cannot be read; they seem not to be made then.
  bool areChoicesRead() const;
  // The application's choice, kept over restarts.
  bool isDataTrackingOptedOut() const;
  void setDataTrackingOptedOut(bool optedOut);
};

}  // namespace zorvane
