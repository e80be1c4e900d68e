// The module's one public entry: what a host application and the core library call.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "Platform/Application/Application.h"
#include "Platform/Dispatch/Mutex.h"
#include "ZRAnalytics/SessionAndSource/ZRSession.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRPayloadBuilder.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZorvaneCore/ZREventTriggerDelegate.h"
#include "ZorvaneCore/ZorvaneCore.h"

namespace zorvane {

// Two gates are asked at each call: whether the account is active (remote configuration) and whether the SDK is
// enabled. A closed gate makes the call return without effect and without its completion. Every operation may be called
// from any thread and throws nothing. Set the host services and the core up before the first use
// (Platform/HostServices.h, ZorvaneCore/CoreSetup.h).
class ZRAnalytics final : public ZRAppIDUpdateDelegate {
 public:
  // Made on first use, never destroyed. Its construction moves four keys of earlier releases from the standard defaults
  // into the SDK defaults store.
  static ZRAnalytics& sharedInstance();

  // --- Start

  // Once, after the core is set up. Where the host allows it, opened URLs and web activities are seen without its help
  // afterwards (from the main thread: at once).
  void initializeAnalytics();
  // For the start and every return to the foreground: refreshes the session and sends what earlier sessions left.
  // Gate: account.
  void updateModules();

  // --- Events

  // Records the event (its name is text) with its properties, or none, and returns; it is sent with its batch. Two
  // events of one thread may be recorded in either order. Gates: account, SDK.
  void trackEventWithProperties(const Value& name, std::shared_ptr<const ZRProperties> properties);
  // The same with what the builder holds now; null: without properties.
  void trackEventBuilderPayload(const Value& name, const std::shared_ptr<const ZRPayloadBuilder>& builder);

  // --- The user

  // Attributes of the user are sent when they change. All of these also ask whether data tracking is enabled; what is
  // no text, number or boolean is dropped with a log line. The key USER_ATTRIBUTE_UNIQUE_ID logs a user in: another ID
  // than before logs the old user out first.
  void setUserAttributeForKey(const Value& value, const Value& key);
  // These are sent at each call. Seconds since 1970.
  void setUserAttributeTimestampForKey(double secondsSince1970, const Value& key);
  void setUserAttributeDateForKey(std::optional<Date> date, const Value& key);
  // "yyyy-MM-dd'T'HH:mm:ss'Z'", with or without ".SSS", in UTC; any other text is ignored.
  void setUserAttributeISODateStringForKey(const Value& text, const Value& key);
  // Degrees.
  void setUserAttributeLocationLatitudeLongitudeForKey(double latitude, double longitude, const Value& key);
  // Renames the current user.
  void setAlias(const Value& uniqueID);
  void trackUserPushPreference(bool preference);

  // Ends this user and begins the next: logout event, a last flush, new session, new registration. The completion is
  // told whether a request was made and everything was accepted; never called when the account is inactive or the
  // logout event is rejected. Gate: account.
  void resetUserWithCompletionBlock(std::function<void(bool success)> completion);
  void resetUser();
  void clearUserInfo();

  // --- Consent; kept over restarts

  // Opting out clears what is stored and stops all but the excepted events; the service is told of each change. Gate:
  // account.
  void optOutOfDataTracking(bool optOut);
  // No gate.
  void optOutOfIDFVTracking(bool optOut);
  void optOutOfIDFATracking(bool optOut);
  // Names of events that are tracked even while data tracking is opted out.
  void updateOptOutEvents(const Array& names);
  // A push consent attribute; always stored, on this thread. No gate but the SDK's.
  void setPushGDPROptOutStatusForKey(const Value& value, const Value& key);

  // --- Device and installation

  // 0: the application was installed, 1: updated. Only the first call ever asks which; afterwards every change of the
  // application's version is an update. Gate: account.
  void appStatus(std::int64_t status);
  // Registers the device with the service. The completion is told whether it was accepted; it is not called when no
  // request is made. Gates: account, SDK.
  void updateDeviceWithCompletion(std::function<void(bool success)> completion);
  void setDeviceModelAttributes();
  void trackAdvertisingIdentifier();
  // The advertising identifier tracked last; nil when there is none.
  Value getTrackedIDFA() const;
  // Gate: account.
  void trackLocale();

  // --- Sending

  // Sends everything recorded so far. The completion is told whether all of it was accepted, or nothing was left to
  // send; it is called on the events handler's queue. Gate: account (closed: the completion is never called).
  void flushWithCompletionBlock(std::function<void(bool success)> completion);
  void syncNow();
  // For good: the choice is kept over restarts.
  void disablePeriodicFlush();
  // Seconds; must lie above the remote minimum. Kept over restarts.
  void setFlushInterval(std::int64_t seconds);

  // --- Deep links and traffic sources

  // A URL that opened the application; absent does nothing. Leaves it to the application delegate proxy where that is
  // in place. Gates: account, SDK.
  void processURL(const std::optional<URL>& url);
  // Sources of the current visit, in the order of their weight. Gates: account, SDK.
  void updateSourcesForCurrentSession(const std::optional<ZRSourceArray>& sources);

  // --- Other modules of the SDK

  // Told of every recorded event, the in-app delegate first, on the events handler's queue. Not kept alive.
  std::shared_ptr<ZREventTriggerDelegate> inappTriggerDelegate() const;
  void setInappTriggerDelegate(std::weak_ptr<ZREventTriggerDelegate> delegate);
  std::shared_ptr<ZREventTriggerDelegate> messagingTriggerDelegate() const;
  void setMessagingTriggerDelegate(std::weak_ptr<ZREventTriggerDelegate> delegate);

  // --- Called by the core

  // The application identifier changed: what was recorded under the old one is sent, then the user is cleaned up and
  // the completion called, on the events handler's queue. Gate: account.
  void appIDChangeHandledWithCompletionBlock(std::function<void()> completion) override;
  // The SDK was enabled or disabled. Disabled: stored events, the advertising identifier, the flush timer (for
  // good, as disablePeriodicFlush) and the session go. Enabled: a new session. No gate.
  void zorvaneSDKStateUpdated();
  // At the start: a changed SDK version is kept; the first one ever asks whether this is a reinstallation.
  void trackSDKVersion();
  void trackReinstall();
  void pushTokenUpdated();

  // --- Lifecycle: observers of the host's notifications, on the main thread

  void applicationIsActive();
  void applicationIsInactive();
  void applicationEnteredForeground();
  // Also when the application terminates.
  void applicationEnteredBackground();
  // Of the new-user notification; any thread.
  void initNewUser();

  // The tasks that were begun last, 0 for none; not reset when a task ends.
  platform::BackgroundTaskId reportsBGTask() const { return reportsBGTask_; }
  platform::BackgroundTaskId deviceUpdateBGTask() const { return deviceUpdateBGTask_; }
  platform::BackgroundTaskId zrvAppExitBGTask() const { return zrvAppExitBGTask_; }

  // The device-add body; empty when the core lacks what it needs, absent without query parameters.
  std::optional<Dictionary> getDeviceAddRequestBody() const;

 private:
  ZRAnalytics() = default;
  void migrateSDKUserDefaultsInfo();
  void addObserverForApplicationLifeCycle();
  // Main thread.
  void configureAppDelegateProxy();
  void sessionStarted();
  void smartTriggerForAppStatus(std::int64_t status);

  void syncOnZrvAppExitWithApplication(platform::Application& application);
  void syncOnSessionTerminationWithApplication(platform::Application& application);
  void deviceUpdateOnSessionTerminationWithApplication(platform::Application& application);
  void flushOnSessionEnd(std::string_view operation, std::function<void()> atTheEnd);
  void endBGTaskWithIdentifier(platform::BackgroundTaskId task);

  // Written on the main thread, read where the work ends.
  std::atomic<platform::BackgroundTaskId> reportsBGTask_{platform::kNoBackgroundTask};
  std::atomic<platform::BackgroundTaskId> deviceUpdateBGTask_{platform::kNoBackgroundTask};
  std::atomic<platform::BackgroundTaskId> zrvAppExitBGTask_{platform::kNoBackgroundTask};

  mutable platform::Mutex delegatesMutex_;
  std::weak_ptr<ZREventTriggerDelegate> inappTriggerDelegate_ ZR_GUARDED_BY(delegatesMutex_);
  std::weak_ptr<ZREventTriggerDelegate> messagingTriggerDelegate_ ZR_GUARDED_BY(delegatesMutex_);
};

}  // namespace zorvane
