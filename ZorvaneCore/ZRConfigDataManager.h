// The remote configuration's answers, read at the moment of use.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Thread-safe.
class ZRConfigDataManager {
 public:
  static ZRConfigDataManager& sharedInstance();

  bool isAccountActive() const;
  bool isDataTrackingEnabled() const;
  bool isIDFVTrackingEnabled() const;
  bool isIDFATrackingEnabled() const;
  bool isPushNotificationEnabled() const;
  bool isInAppEnabled() const;
  bool isPeriodicFlushEnabled() const;

  bool isEventWhitelistedEvent(std::string_view name) const;
  bool isEventBlackListed(std::string_view name) const;
  bool isEventInstantFlushEvent(std::string_view name) const;
  bool isUniqueIDRestricted(std::string_view uniqueID) const;

  // Events; 0 when the service did not say.
  std::int64_t getEventBatchCount() const;
  // Seconds.
  std::int64_t getPeriodicFlushDuration() const;
  std::int64_t getMinimumPeriodicFlushDurationLimit() const;
  std::int64_t getUserAttributeCachingDuration() const;
  std::int64_t getSessionInActiveDuration() const;

  // Absent when empty.
  std::optional<std::string> getZrvAppID() const;
  std::optional<std::string> getAppGroupID() const;
  // Key texts.
  Array getSourceExtraKeys() const;

  // Kept over restarts.
  void setDataTrackingOptedOut(bool optedOut);
};

}  // namespace zorvane
