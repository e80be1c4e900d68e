// The module's public entry: what a host application and the core library call.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "Platform/Application/Application.h"
#include "Platform/Dispatch/LockedValue.h"
#include "Platform/Export.h"
#include "ZRAnalytics/SessionAndSource/ZRSession.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRPayloadBuilder.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZorvaneCore/ZREventTriggerDelegate.h"
#include "ZorvaneCore/ZorvaneCore.h"

namespace zorvane {

// Calls check two gates: whether the account is active (remote configuration) and whether the SDK is enabled. If a gate
// is closed, the call does nothing and its completion is not called.
//
// Every operation may be called from any thread and throws nothing; errors are logged. Names, keys and values are plain
// literals, strings or numbers (Platform/Values/Value.h). Completions may be empty. None runs on the main thread unless
// its operation says so; exceptions from them are logged. Configure the host services and the core before the first use
// (Platform/HostServices.h, ZorvaneCore/CoreSetup.h).
class ZR_PUBLIC ZRAnalytics final : public ZRAppIDUpdateDelegate {
 public:
  // Created on first use, never destroyed. Construction moves four keys of earlier releases from the standard defaults
  // store into the SDK defaults store.
  static ZRAnalytics& sharedInstance();

  // --- Start

  // Call once, after the core is configured. Tracks the advertising identifier, updates the modules and, where the host
  // allows it, installs the application delegate proxy on the main thread (at once if called there).
  void initializeAnalytics();
  // Called at the start and at every return to the foreground. Refreshes the session, sends what earlier sessions left
  // and completes an interrupted change of user. Gate: account.
  void updateModules();

  // --- Events

  // Records the event and returns; it is sent with its batch. The name must be text, the properties may be null. Events
  // of one thread are recorded in the order of the calls; a host's own scheduler must implement asyncSoon of its global
  // queues as Platform/Dispatch/Queue.h says. Gates: account, SDK.
  void trackEventWithProperties(Value name, std::shared_ptr<const ZRProperties> properties);
  // The same with what the builder holds now; a null builder means no properties.
  void trackEventBuilderPayload(const Value& name, const std::shared_ptr<const ZRPayloadBuilder>& builder);

  // --- The user

  // Gates of the operations up to trackUserPushPreference: account, SDK, data tracking. All but setAlias return at once
  // and work on a global queue, so two attributes of one thread may be sent in either order.
  //
  // Sends the value if it changed or its caching duration ran out. A value other than text, number or boolean is
  // dropped with a log line. The key USER_ATTRIBUTE_UNIQUE_ID logs a user in under the value's trimmed text; if another
  // user is logged in, that one is logged out first, as by resetUser.
  void setUserAttributeForKey(const Value& value, const Value& key);
  // Each call sends the attribute. Seconds since 1970; an absent date is ignored.
  void setUserAttributeTimestampForKey(double secondsSince1970, const Value& key);
  void setUserAttributeDateForKey(std::optional<Date> date, const Value& key);
  // "yyyy-MM-dd'T'HH:mm:ss'Z'", with or without ".SSS", in UTC; any other text is ignored.
  void setUserAttributeISODateStringForKey(const Value& text, const Value& key);
  // Degrees.
  void setUserAttributeLocationLatitudeLongitudeForKey(double latitude, double longitude, const Value& key);
  // Renames the current user without a logout. Writes the attribute cache to disk on the calling thread.
  void setAlias(const Value& uniqueID);
  // Sets the attribute "USER_PUSH_PREFERENCE".
  void trackUserPushPreference(bool preference);

  // Logs this user out and begins the next: logout event, flush, then a new session and a new device registration, even
  // if the flush failed. The completion tells whether requests were made and all were accepted. While another sync runs
  // it is called immediately with false, and again when that sync ends. It runs on the events handler's queue, or on a
  // global queue while the SDK is disabled, and is never called if the logout event is rejected. Gate: account.
  void resetUserWithCompletionBlock(std::function<void(bool success)> completion);
  // The same without a completion.
  void resetUser();
  // As resetUser.
  void clearUserInfo();

  // --- Consent; kept over restarts

  // Opting out deletes stored events and cached attributes and stops all events but the excepted ones. Each change
  // registers the device anew; opting back in also sends the device attributes again. Gate: account.
  void optOutOfDataTracking(bool optOut);
  // Opting out keeps the vendor identifier (IDFV) or the advertising identifier (IDFA) out of later registrations and
  // attributes; attributes that were tracked before still go with their batch. Opting back in sends it again. No gate.
  void optOutOfIDFVTracking(bool optOut);
  void optOutOfIDFATracking(bool optOut);
  // Adds names of events that are tracked even while data tracking is opted out. Not kept over restarts. No gate.
  void updateOptOutEvents(const Array& names);
  // Sends a push consent attribute at each call. The key "ZORVANE_PUSH_OPTED_OUT" is sent even while data tracking is
  // opted out. Gate: SDK.
  void setPushGDPROptOutStatusForKey(const Value& value, const Value& key);

  // --- Device and installation

  // 0: the application was installed, 1: updated. The status counts only in the first call ever. After that a new
  // application version is an update, and an unchanged version tracks nothing. Gate: account.
  void appStatus(std::int64_t status);
  // Tracks the status's event, whatever the version; an installation only once.
  void smartTriggerForAppStatus(std::int64_t status);
  // Registers the device with the service. The completion tells, on the transport's thread, whether the service
  // accepted; it is not called if no request is made. Until accepted, the registration counts as failed and is repeated
  // whenever the application leaves the foreground. Gates: account, SDK.
  void updateDeviceWithCompletion(std::function<void(bool success)> completion);
  // Sends model, name, system version and vendor identifier as device attributes. Gates: data tracking, SDK.
  void setDeviceModelAttributes();
  // Sends the advertising identifier if it differs from the one tracked last. Gate: advertising-identifier tracking.
  void trackAdvertisingIdentifier();
  // The advertising identifier tracked last; nil if there is none.
  Value getTrackedIDFA() const;
  // Sends country, language and identifier of the current locale where they changed. Gate: account.
  void trackLocale();

  // --- Sending

  // Saves the events recorded so far and sends all saved batches. An event tracked just before may not be recorded yet;
  // it goes with the next flush. The completion tells whether the service accepted everything or nothing was left to
  // send; while another sync runs it is called immediately with false. It runs on the events handler's queue, or, with
  // false, on a global queue while the SDK is disabled. A failed save is only logged. Gate: account.
  void flushWithCompletionBlock(std::function<void(bool success)> completion);
  // The same without a completion.
  void syncNow();
  // Stops the flush timer; kept over restarts. Waits for the main thread.
  void disablePeriodicFlush();
  // Seconds; ignored unless above the remote minimum. Kept over restarts.
  void setFlushInterval(std::int64_t seconds);

  // --- Deep links and traffic sources

  // A URL opened the application. An absent URL is ignored. Does nothing while the application delegate proxy is
  // installed, which sees the URL itself: see openURL (ZRHosting.h), which an application calls. Gates: account, SDK.
  void processURL(const std::optional<URL>& url);
  // Traffic sources of the current visit. A session younger than 5 seconds without a source takes them; otherwise a new
  // session begins if the old one has expired or its first source differs. Absent or empty changes nothing during a
  // session. Gates: account, SDK.
  void updateSourcesForCurrentSession(const std::optional<ZRSourceArray>& sources);

  // --- Other modules of the SDK

  // Called for every recorded event on the events handler's queue, the in-app delegate first. Held weakly.
  std::shared_ptr<ZREventTriggerDelegate> inappTriggerDelegate() const;
  void setInappTriggerDelegate(std::weak_ptr<ZREventTriggerDelegate> delegate);
  std::shared_ptr<ZREventTriggerDelegate> messagingTriggerDelegate() const;
  void setMessagingTriggerDelegate(std::weak_ptr<ZREventTriggerDelegate> delegate);

  // --- Called by the core

  // The application identifier changed. Flushes, then resets the user and calls the completion on the events handler's
  // queue (a global queue while the SDK is disabled). Gate: account.
  void appIDChangeHandledWithCompletionBlock(std::function<void()> completion) override;
  // The SDK was enabled or disabled. Disabled: deletes stored events, cached attributes, the saved advertising
  // identifier and the session, and disables the periodic flush, for which it waits for the main thread. Enabled:
  // begins a new session. No gate.
  void zorvaneSDKStateUpdated();
  // Called at the start. Stores a changed SDK version; if none was stored, calls trackReinstall. No gate.
  void trackSDKVersion();
  // Tracks a reinstallation if a device identifier outlived the application's data. Gate: SDK.
  void trackReinstall();
  // Registers the device anew. Gates: account, SDK.
  void pushTokenUpdated();

  // --- Lifecycle
  //
  // Observers of the host's lifecycle notifications, on the main thread; the notification's name is ignored. A host
  // that posts the notifications does not call these. Gate: account.

  // Tracks the session start.
  void applicationIsActive(std::string_view notification = {});
  // Writes the SDK defaults (no gate), repeats a failed registration, tracks the session end and flushes within a
  // background task.
  void applicationIsInactive(std::string_view notification = {});
  // As updateModules.
  void applicationEnteredForeground(std::string_view notification = {});
  // Also called when the application terminates. Tracks the exit and, once that event is recorded, flushes within a
  // background task.
  void applicationEnteredBackground(std::string_view notification = {});
  // Observer of "ZRVInitNewUser", on any thread. Begins a new session, registers the device, sends the device
  // attributes if that was accepted, then posts "ZRVUpdateModules". Gates: account, SDK.
  void initNewUser();

  // Parts of the above. The syncs begin a background task here, and save the current batch and flush on a global queue.
  void sessionStarted();
  void syncOnZrvAppExitWithApplication(platform::Application& application);
  void syncOnSessionTerminationWithApplication(platform::Application& application);
  void deviceUpdateOnSessionTerminationWithApplication(platform::Application& application);
  void endBGTaskWithIdentifier(platform::BackgroundTaskId task);

  // The background tasks begun last; 0 for none. Not reset when a task ends.
  platform::BackgroundTaskId reportsBGTask() const { return reportsBGTask_; }
  void setReportsBGTask(platform::BackgroundTaskId task) { reportsBGTask_ = task; }
  platform::BackgroundTaskId deviceUpdateBGTask() const { return deviceUpdateBGTask_; }
  void setDeviceUpdateBGTask(platform::BackgroundTaskId task) { deviceUpdateBGTask_ = task; }
  platform::BackgroundTaskId zrvAppExitBGTask() const { return zrvAppExitBGTask_; }
  void setZrvAppExitBGTask(platform::BackgroundTaskId task) { zrvAppExitBGTask_ = task; }

  // The body of a device registration. Empty without a unique identifier or time, absent without query parameters and
  // after an error.
  std::optional<Dictionary> getDeviceAddRequestBody() const;

 private:
  ZRAnalytics() = default;
  static std::optional<Dictionary> deviceAddBody();
  void migrateSDKUserDefaultsInfo();
  void addObserverForApplicationLifeCycle();
  // Main thread.
  void configureAppDelegateProxy();
  void flushOnSessionEnd(const char* operation, std::function<void()> completion);

  // Written on the main thread, read by completions on any thread.
  std::atomic<platform::BackgroundTaskId> reportsBGTask_{platform::kNoBackgroundTask};
  std::atomic<platform::BackgroundTaskId> deviceUpdateBGTask_{platform::kNoBackgroundTask};
  std::atomic<platform::BackgroundTaskId> zrvAppExitBGTask_{platform::kNoBackgroundTask};

  platform::LockedValue<std::weak_ptr<ZREventTriggerDelegate>> inappTriggerDelegate_;
  platform::LockedValue<std::weak_ptr<ZREventTriggerDelegate>> messagingTriggerDelegate_;
};

}  // namespace zorvane
