// The facade's operations for the application lifecycle: session events and the last syncs before suspension.

#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZRAnalytics/ZRFacadeSupport.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {

using namespace facade;

namespace {

// The source file in error reports.
constexpr char kFile[] = "ZRAnalyticsLifecycle";
constexpr char kSyncException[] = "exception while trying to sync data : %@";

platform::Application& sharedApplication() {
  return *platform::hostServices().application;
}

}  // namespace

void ZRAnalytics::addObserverForApplicationLifeCycle() {
  platform::NotificationCenter& center = *platform::hostServices().notificationCenter;
  const auto observe = [&](std::string_view name, void (ZRAnalytics::*operation)(std::string_view notification)) {
    center.addObserver(name, [this, operation](std::string_view notification) { (this->*operation)(notification); });
  };
  observe(platform::kDidBecomeActiveNotification, &ZRAnalytics::applicationIsActive);
  observe(platform::kWillResignActiveNotification, &ZRAnalytics::applicationIsInactive);
  observe(platform::kWillEnterForegroundNotification, &ZRAnalytics::applicationEnteredForeground);
  observe(platform::kDidEnterBackgroundNotification, &ZRAnalytics::applicationEnteredBackground);
  observe(platform::kWillTerminateNotification, &ZRAnalytics::applicationEnteredBackground);
  center.addObserver(kNotificationNameInitNewUser, [this](std::string_view) { initNewUser(); });
}

void ZRAnalytics::applicationIsActive(std::string_view /*notification*/) {
  guarded({kFile, "applicationIsActive"}, "exception in application is active : %@", [this] {
    if (isAccountActive()) sessionStarted();
  });
}

void ZRAnalytics::sessionStarted() {
  guarded({kFile, "sessionStarted"}, "exception in Session start : %@",
          [] { ZREventsHandler::sharedInstance().trackEvent(kEventNameSessionStart); });
}

void ZRAnalytics::applicationIsInactive(std::string_view /*notification*/) {
  guarded({kFile, "applicationIsInactive"}, "exception in application is Inactive : %@", [this] {
    platform::DefaultsStore& defaults = ZRCoreUtils::getSDKUserDefault();
    (void)defaults.synchronize();
    if (!isAccountActive()) return;
    platform::Application& application = sharedApplication();
    if (defaults.boolForKey(kUserDefaultsKeyHasDeviceAddFailed)) {
      deviceUpdateOnSessionTerminationWithApplication(application);
    }
    ZREventsHandler::sharedInstance().trackEvent(kEventNameSessionEnd);
    syncOnSessionTerminationWithApplication(application);
  });
}

void ZRAnalytics::applicationEnteredForeground(std::string_view /*notification*/) {
  updateModules();
}

void ZRAnalytics::applicationEnteredBackground(std::string_view /*notification*/) {
  guarded({kFile, "applicationEnteredBackground"}, "exception in application did enter Background is %@", [this] {
    if (!isAccountActive()) return;
    // The last sync begins only when the event is recorded, so that it is sent too.
    ZREventsHandler::sharedInstance().trackEventWithPropertiesWithCompletionBlock(kEventNameAppExit, nullptr, [this] {
      platform::hostServices().scheduler->mainQueue().async(
          [this] { syncOnZrvAppExitWithApplication(sharedApplication()); });
    });
  });
}

void ZRAnalytics::flushOnSessionEnd(const char* operation, std::function<void()> completion) {
  globalQueue(platform::Priority::Default).async([operation, completion = std::move(completion)] {
    guarded({kFile, operation}, kSyncException, [&] {
      ZREventsHandler& events = ZREventsHandler::sharedInstance();
      events.saveCurrentBatch();
      events.flushEventsInBackgroundAndResetWithCompletionBlock(
          true, false, [completion](bool success, bool attempted) {
            if (attempted) {
              logLine(success ? "Report add successful on Session End" : "Report add unsuccessful on Session End");
            }
            completion();
          });
    });
  });
}

void ZRAnalytics::syncOnZrvAppExitWithApplication(platform::Application& application) {
  guarded({kFile, "syncOnZrvAppExitWithApplication"}, kSyncException, [&] {
    zrvAppExitBGTask_ =
        application.beginBackgroundTask("bg_zrv_app_exit", [this] { endBGTaskWithIdentifier(zrvAppExitBGTask_); });
    flushOnSessionEnd("syncOnZrvAppExitWithApplication", [this] { endBGTaskWithIdentifier(zrvAppExitBGTask_); });
  });
}

void ZRAnalytics::syncOnSessionTerminationWithApplication(platform::Application& application) {
  guarded({kFile, "syncOnSessionTerminationWithApplication"}, kSyncException, [&] {
    reportsBGTask_ = application.beginBackgroundTask("ZRVTask", [this] { endBGTaskWithIdentifier(reportsBGTask_); });
    flushOnSessionEnd("syncOnSessionTerminationWithApplication", [this] {
      // Unlike the task of the app exit, 0 is not ended.
      if (reportsBGTask_ != platform::kNoBackgroundTask) endBGTaskWithIdentifier(reportsBGTask_);
    });
  });
}

void ZRAnalytics::deviceUpdateOnSessionTerminationWithApplication(platform::Application& application) {
  guarded({kFile, "deviceUpdateOnSessionTerminationWithApplication"}, kSyncException, [&] {
    deviceUpdateBGTask_ = application.beginBackgroundTask("ZRVDeviceUpdateTask",
                                                          [this] { endBGTaskWithIdentifier(deviceUpdateBGTask_); });
    globalQueue(platform::Priority::Default).async([this] {
      updateDeviceWithCompletion([this](bool /*success*/) { endBGTaskWithIdentifier(deviceUpdateBGTask_); });
    });
  });
}

void ZRAnalytics::endBGTaskWithIdentifier(platform::BackgroundTaskId task) {
  guarded({kFile, "endBGTaskWithIdentifier"}, kSyncException, [&] { sharedApplication().endBackgroundTask(task); });
}

}  // namespace zorvane
