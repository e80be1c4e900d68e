// The facade's operations for the user: attributes, reset, consent.

#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/DeviceAttribute/ZRDeviceAttributesHandler.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRDefaults.h"
#include "ZRAnalytics/Utils/ZRISODate.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZRAnalytics/ZRFacadeSupport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {

using namespace facade;

namespace {

// The source file in error reports.
constexpr char kFile[] = "ZRAnalyticsUser";

void post(std::string_view notification) {
  platform::hostServices().notificationCenter->post(notification);
}

// Runs the work of a user-attribute operation on the default global queue, if attributes may be tracked and the user
// does not opt out before it runs.
template <typename Work>
void onAttributeQueue(const char* operation, Work work) {
  guarded({kFile, operation}, "exception : %@", [&] {
    if (!ZRAnalyticsUtils::shouldTrackUserAttribute()) return;
    globalQueue(platform::Priority::Default).async([operation, work = std::move(work)] {
      guarded({kFile, operation}, "exception : %@", [&work] {
        if (!ZRAnalyticsUtils::isOptedOut()) work();
      });
    });
  });
}

// After an identifier was set: an opt-out or a disabling that came meanwhile may have forgotten the user before.
void forgetUserIfOptedOut() {
  if (ZRAnalyticsUtils::isOptedOut()) ZRUserAttributesHandler::sharedHandler().forgetUser();
}

}  // namespace

void ZRAnalytics::setUserAttributeForKey(const Value& value, const Value& key) {
  onAttributeQueue("setUserAttributeForKey", [value, key] {
    ZRUserAttributesHandler& handler = ZRUserAttributesHandler::sharedHandler();
    if (key == Value(USER_ATTRIBUTE_UNIQUE_ID)) {
      handler.setUserAttributeUniqueID(value);
      forgetUserIfOptedOut();
    } else if (handler.setUserAttributeValueWithNameCheckStorage(value, key, true)) {
      logLine("UserAttribute %@ tracked with Value %@", {key, value});
    } else {
      logLine("UserAttribute wasn't tracked as it was already present OR the key/value was nil");
    }
  });
}

void ZRAnalytics::setUserAttributeTimestampForKey(double secondsSince1970, const Value& key) {
  onAttributeQueue("setUserAttributeTimestampForKey", [secondsSince1970, key] {
    ZRUserAttributesHandler::sharedHandler().setUserAttributeTimestampForKey(secondsSince1970, key);
  });
}

void ZRAnalytics::setUserAttributeDateForKey(std::optional<Date> date, const Value& key) {
  if (!date) return;
  onAttributeQueue("setUserAttributeDateForKey", [seconds = date->secondsSince1970, key] {
    ZRUserAttributesHandler::sharedHandler().setUserAttributeTimestampForKey(seconds, key);
  });
}

void ZRAnalytics::setUserAttributeISODateStringForKey(const Value& text, const Value& key) {
  guarded({kFile, "setUserAttributeISODateStringForKey"}, "exception : %@", [&] {
    if (!ZRAnalyticsUtils::shouldTrackUserAttribute() || text.isNil()) return;
    const auto date = dateOfISOText(text);
    if (!date) return;
    setUserAttributeDateForKey(date, key);
  });
}

void ZRAnalytics::setUserAttributeLocationLatitudeLongitudeForKey(double latitude, double longitude, const Value& key) {
  onAttributeQueue("setUserAttributeLocationLatitudeLongitudeForKey", [latitude, longitude, key] {
    ZRUserAttributesHandler::sharedHandler().setUserAttributeLocationLatitudeLongitudeForKey(latitude, longitude, key);
  });
}

void ZRAnalytics::setAlias(const Value& uniqueID) {
  guarded({kFile, "setAlias"}, "exception : %@", [&] {
    if (!ZRAnalyticsUtils::shouldTrackUserAttribute()) return;
    ZRUserAttributesHandler::sharedHandler().updateUserAttributeUniqueID(uniqueID);
    forgetUserIfOptedOut();
  });
}

void ZRAnalytics::trackUserPushPreference(bool preference) {
  setUserAttributeForKey(preference, kUserAttributeNamePushPreference);
}

void ZRAnalytics::resetUser() {
  resetUserWithCompletionBlock(nullptr);
}

void ZRAnalytics::clearUserInfo() {
  resetUser();
}

void ZRAnalytics::resetUserWithCompletionBlock(std::function<void(bool)> completion) {
  guarded({kFile, "resetUserWithCompletionBlock"}, "Reset User exception : %@", [&] {
    if (!isAccountActive()) return;
    auto properties = std::make_shared<ZRProperties>();
    properties->setNonInteractive();
    const auto reset = ZRUserAttributesHandler::sharedHandler().beginReset();
    auto flushed = [reset, completion = std::move(completion)](bool success, bool attempted) {
      if (attempted) {
        logLine(success ? "Report add successful on reset user" : "Report add unsuccessful on reset user");
      }
      post(kNotificationNameInitNewUser);
      ZRUserAttributesHandler::sharedHandler().endReset(*reset);
      callBlock({kFile, "resetUserWithCompletionBlock"}, "Reset User exception : %@", completion, attempted && success);
    };
    ZREventsHandler::sharedInstance().trackEventWithPropertiesWithCompletionBlock(
        kEventNameLogout, std::move(properties), [flushed = std::move(flushed)] {
          globalQueue(platform::Priority::Background).async([flushed] {
            guarded({kFile, "resetUserWithCompletionBlock"}, "Reset User exception : %@", [&] {
              ZREventsHandler& events = ZREventsHandler::sharedInstance();
              events.saveCurrentBatch();
              events.flushEventsInBackgroundAndResetWithCompletionBlock(false, true, flushed);
            });
          });
        });
  });
}

void ZRAnalytics::initNewUser() {
  guarded({kFile, "initNewUser"}, "exception : %@", [this] {
    if (!ZRAnalyticsUtils::areGatesOpen()) return;
    ZRSessionManager::sharedSessionManager().reinitiateSession();
    logLine("Creating new user now");
    updateDeviceWithCompletion([this](bool success) {
      guarded({kFile, "initNewUser"}, "exception : %@", [&] {
        if (success) {
          setDeviceModelAttributes();
          trackAdvertisingIdentifier();
        }
        post(kNotificationNameUpdateModules);
      });
    });
  });
}

void ZRAnalytics::optOutOfDataTracking(bool optOut) {
  guarded({kFile, "optOutOfDataTracking"}, "Exception while opting out of data tracking : %@", [&] {
    if (!isAccountActive()) return;
    ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
    const bool wasEnabled = store.isDataTrackingEnabled();
    if (optOut && wasEnabled) {
      ZRUserAttributesHandler::sharedHandler().forgetUser();
      ZREventsHandler::sharedInstance().clearEventsdata();
      removeFromDefaults(kUserDefaultsKeyIDFA);
    }
    store.setDataTrackingOptedOut(optOut);
    // What came since it was cleared.
    if (optOut && wasEnabled) {
      ZRUserAttributesHandler::sharedHandler().forgetUser();
      ZREventsHandler::sharedInstance().dropOptedOutEvents();
    }
    if (optOut != wasEnabled) return;
    updateDeviceWithCompletion([this, optOut](bool /*success*/) {
      if (optOut) return;
      setDeviceModelAttributes();
      trackAdvertisingIdentifier();
    });
  });
}

void ZRAnalytics::optOutOfIDFVTracking(bool optOut) {
  guarded({kFile, "optOutOfIDFVTracking"}, "exception is %@", [&] {
    ZorvaneCore& core = ZorvaneCore::sharedInstance();
    ZRSDKConfiguration configuration = core.getDefaultSDKConfiguration();
    if (configuration.optOutIDFVTracking() == optOut) return;
    configuration.setOptOutIDFVTracking(optOut);
    core.updateSDKConfigWithCompletionBlock(configuration, [optOut] {
      if (optOut) return;
      ZRDeviceAttributesHandler::sharedInstance().setDeviceAttributeForKey(ZRCoreUtils::getIDFV(),
                                                                           kDeviceAttributeNameIDFV);
    });
  });
}

void ZRAnalytics::optOutOfIDFATracking(bool optOut) {
  guarded({kFile, "optOutOfIDFATracking"}, "exception is %@", [&] {
    ZorvaneCore& core = ZorvaneCore::sharedInstance();
    ZRSDKConfiguration configuration = core.getDefaultSDKConfiguration();
    if (configuration.optOutIDFATracking() == optOut) return;
    configuration.setOptOutIDFATracking(optOut);
    core.updateSDKConfigWithCompletionBlock(configuration, [this, optOut] {
      if (optOut) {
        removeFromDefaults(kUserDefaultsKeyIDFA);
      } else {
        trackAdvertisingIdentifier();
      }
    });
  });
}

void ZRAnalytics::updateOptOutEvents(const Array& names) {
  guarded({kFile, "updateOptOutEvents"}, "exception is %@",
          [&] { ZREventsHandler::sharedInstance().updateSDKWhiteListedEvents(names); });
}

void ZRAnalytics::setPushGDPROptOutStatusForKey(const Value& value, const Value& key) {
  guarded({kFile, "setPushGDPROptOutStatusForKey"}, "exception is %@", [&] {
    ZRUserAttributesHandler::sharedHandler().setUserAttributeValueWithNameCheckStorage(value, key, false);
  });
}

void ZRAnalytics::trackLocale() {
  guarded({kFile, "trackLocale"}, "exception while tracking Locale %@", [] {
    if (isAccountActive()) ZRUserAttributesHandler::sharedHandler().trackLocale();
  });
}

}  // namespace zorvane
