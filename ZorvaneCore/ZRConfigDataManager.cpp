#include "ZorvaneCore/ZRConfigDataManager.h"

#include <algorithm>

#include "ZorvaneCore/RemoteConfiguration.h"

namespace zorvane {
namespace {

std::shared_ptr<const RemoteConfiguration> configuration() {
  return CoreState::shared().configuration();
}

bool listHolds(const std::vector<std::string>& list, std::string_view text) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

std::optional<std::string> absentWhenEmpty(std::string text) {
  if (text.empty()) return std::nullopt;
  return text;
}

}  // namespace

ZRConfigDataManager& ZRConfigDataManager::sharedInstance() {
  static ZRConfigDataManager* const manager = new ZRConfigDataManager;
  return *manager;
}

ZREventJournal* ZRConfigDataManager::getEventJournal() const {
  return CoreState::shared().journal();
}

bool ZRConfigDataManager::isAccountActive() const {
  return CoreState::shared().isAccountActive();
}
bool ZRConfigDataManager::isDataTrackingEnabled() const {
  return configuration()->data_tracking_enabled && !isDataTrackingOptedOut();
}
bool ZRConfigDataManager::isIDFVTrackingEnabled() const {
  return configuration()->idfv_tracking_enabled && !CoreState::shared().sdkConfiguration().optOutIDFVTracking();
}
bool ZRConfigDataManager::isIDFATrackingEnabled() const {
  return configuration()->idfa_tracking_enabled && !CoreState::shared().sdkConfiguration().optOutIDFATracking();
}
bool ZRConfigDataManager::isPushNotificationEnabled() const {
  return configuration()->push_enabled;
}
bool ZRConfigDataManager::isInAppEnabled() const {
  return configuration()->in_app_enabled;
}
bool ZRConfigDataManager::isPeriodicFlushEnabled() const {
  return configuration()->periodic_flush_enabled &&
         !CoreState::shared().sdkConfiguration().analyticsDisablePeriodicFlush();
}

bool ZRConfigDataManager::isEventWhitelistedEvent(std::string_view name) const {
  return listHolds(configuration()->whitelisted_events, name);
}
bool ZRConfigDataManager::isEventBlackListed(std::string_view name) const {
  return listHolds(configuration()->blacklisted_events, name);
}
bool ZRConfigDataManager::isEventInstantFlushEvent(std::string_view name) const {
  return listHolds(configuration()->instant_flush_events, name);
}
bool ZRConfigDataManager::isUniqueIDRestricted(std::string_view uniqueID) const {
  return listHolds(configuration()->restricted_unique_ids, uniqueID);
}

std::int64_t ZRConfigDataManager::getEventBatchCount() const {
  return configuration()->event_batch_count;
}
std::int64_t ZRConfigDataManager::getPeriodicFlushDuration() const {
  return CoreState::shared().sdkConfiguration().analyticsPeriodicFlushDuration().value_or(
      configuration()->periodic_flush_duration);
}
std::int64_t ZRConfigDataManager::getMinimumPeriodicFlushDurationLimit() const {
  return configuration()->minimum_periodic_flush_duration;
}
std::int64_t ZRConfigDataManager::getUserAttributeCachingDuration() const {
  return configuration()->user_attribute_caching_duration;
}
std::int64_t ZRConfigDataManager::getSessionInActiveDuration() const {
  return configuration()->s_i_d;
}

std::optional<std::string> ZRConfigDataManager::getZrvAppID() const {
  return absentWhenEmpty(CoreState::shared().appId());
}
std::optional<std::string> ZRConfigDataManager::getAppGroupID() const {
  return absentWhenEmpty(configuration()->app_group_id);
}
Array ZRConfigDataManager::getSourceExtraKeys() const {
  const auto current = configuration();
  return Array(current->source_extra_keys.begin(), current->source_extra_keys.end());
}

bool ZRConfigDataManager::areChoicesRead() const {
  return CoreState::shared().areChoicesRead();
}
bool ZRConfigDataManager::isDataTrackingOptedOut() const {
  return CoreState::shared().choice(kChoiceDataTrackingOptedOut);
}
void ZRConfigDataManager::setDataTrackingOptedOut(bool optedOut) {
  CoreState::shared().setChoice(kChoiceDataTrackingOptedOut, optedOut);
}

}  // namespace zorvane
