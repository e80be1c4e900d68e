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
// enabled. A closed gate makes the call return without effect and without its completion.
//
// Every operation may be called from any thread and throws nothing; what goes wrong inside is reported to the log.
// Names, keys and values are plain literals, strings or numbers (Platform/Values/Value.h). Completions may be empty;
// none is called on the main thread unless it says so, and what one throws is logged. Set the host services and the
// core up before the first use (Platform/HostServices.h, ZorvaneCore/CoreSetup.h).
class ZRAnalytics final : public ZRAppIDUpdateDelegate {
 public:
  // Made on first use, never destroyed. Its construction moves four keys of earlier releases from the standard defaults
  // into the SDK defaults store.
  static ZRAnalytics& sharedInstance();

  // --- Start

  // Once, after the core is set up. Where the host allows it, opened URLs and web activities are seen without its help
  // afterwards (from the main thread: at once).
  void initializeAnalytics();
  // For the start and every return to the foreground: refreshes the session, sends what earlier sessions left and
  // finishes a change of the user that could not end. Gate: account.
  void updateModules();

  // --- Events

  // Records the event (its name is text) with its properties, or none, and returns; it is sent with its batch. Two
  // events of one thread may be recorded in either order. Gates: account, SDK.
  void trackEventWithProperties(const Value& name, std::shared_ptr<const ZRProperties> properties);
  // The same with what the builder holds now; null: without properties.
  void trackEventBuilderPayload(const Value& name, const std::shared_ptr<const ZRPayloadBuilder>& builder);

  // --- The user

  // Gates of all of these: account, SDK, and whether data tracking is enabled. But for the alias they return at once
  // and work on a global queue: two attributes of one thread may be sent in either order.
  //
  // Sent when it changes, or when the configured caching duration has run out. What is no text, number or boolean is
  // dropped with a log line. The key USER_ATTRIBUTE_UNIQUE_ID logs a user in, by the value's text without blanks around
  // it: another ID than before logs the old user out first, as resetUser does.
  void setUserAttributeForKey(const Value& value, const Value& key);
  // Sent at each call. Seconds since 1970; an absent date is ignored.
  void setUserAttributeTimestampForKey(double secondsSince1970, const Value& key);
  void setUserAttributeDateForKey(std::optional<Date> date, const Value& key);
  // "yyyy-MM-dd'T'HH:mm:ss'Z'", with or without ".SSS", in UTC; any other text is ignored.
  void setUserAttributeISODateStringForKey(const Value& text, const Value& key);
  // Degrees.
  void setUserAttributeLocationLatitudeLongitudeForKey(double latitude, double longitude, const Value& key);
  // Renames the current user, without a logout; written to the disk on this thread.
  void setAlias(const Value& uniqueID);
  // The attribute "USER_PUSH_PREFERENCE".
  void trackUserPushPreference(bool preference);

  // Ends this user and begins the next: logout event, a last flush, then a new session and a new registration, even
  // when the flush failed. The completion is told, on the events handler's queue (a global one while the SDK is
  // disabled), whether a request was made and everything was accepted; while another sync runs it is told no at once,
  // and again after that sync. Never called when the logout event is rejected. Gate: account.
  void resetUserWithCompletionBlock(std::function<void(bool success)> completion);
  void resetUser();
  void clearUserInfo();

  // --- Consent; kept over restarts

  // Opting out deletes what is stored and stops all but the excepted events; the service is told of each change. Opting
  // back in sends the device's facts again. Gate: account.
  void optOutOfDataTracking(bool optOut);
  // The vendor's and the advertising identifier: left out of requests, and sent again after opting back in. No gate.
  void optOutOfIDFVTracking(bool optOut);
  void optOutOfIDFATracking(bool optOut);
  // Adds names of events that are tracked even while data tracking is opted out; for this launch.
  void updateOptOutEvents(const Array& names);
  // A push consent attribute, sent at each call; of the key "ZORVANE_PUSH_OPTED_OUT" even while data tracking is opted
  // out. Gate: SDK.
  void setPushGDPROptOutStatusForKey(const Value& value, const Value& key);

  // --- Device and installation

  // 0: the application was installed, 1: updated. Only the first call ever asks which; afterwards every change of the
  // application's version is an update, and the same version is nothing. Gate: account.
  void appStatus(std::int64_t status);
  // The event of a status, whatever the version; an installation is tracked once.
  void smartTriggerForAppStatus(std::int64_t status);
  // Registers the device with the service. The completion is told, on the transport's thread, whether it was accepted;
  // it is not called when no request is made. Until then the registration counts as failed, and is repeated whenever
  // the application leaves the foreground. Gates: account, SDK.
  void updateDeviceWithCompletion(std::function<void(bool success)> completion);
  // Model, name, system version and vendor identifier as device attributes. Gates: data tracking, SDK.
  void setDeviceModelAttributes();
  // Sent when it is another than the one tracked last. Gate: advertising-identifier tracking.
  void trackAdvertisingIdentifier();
  // The advertising identifier tracked last; nil when there is none.
  Value getTrackedIDFA() const;
  // Country, language and identifier of the current locale, where they changed. Gate: account.
  void trackLocale();

  // --- Sending

  // Saves what is recorded so far and sends everything that is saved; an event tracked just before may still be on its
  // way, and goes with the next. The completion is told whether all of it was accepted, or nothing was left to send,
  // and no at once while another sync runs; that something could not be saved is in the log. It is called on the events
  // handler's queue, or with no on a global one while the SDK is disabled. Gate: account.
  void flushWithCompletionBlock(std::function<void(bool success)> completion);
  // The same without a completion.
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
  // the completion called, on the events handler's queue (a global one while the SDK is disabled). Gate: account.
  void appIDChangeHandledWithCompletionBlock(std::function<void()> completion) override;
  // The SDK was enabled or disabled. Disabled: stored events, the advertising identifier, the flush timer (for
  // good, as disablePeriodicFlush) and the session go. Enabled: a new session. No gate.
  void zorvaneSDKStateUpdated();
  // At the start: a changed SDK version is kept; the first one ever asks whether this is a reinstallation. No gate.
  void trackSDKVersion();
  // Tracked where a device identifier outlived the application's data.
  void trackReinstall();
  // Registers the device anew.
  void pushTokenUpdated();

  // --- Lifecycle
  //
  // Observers of the host's notifications, on the main thread: a host that posts them calls none of these. Gate:
  // account.

  // Tracks the session's start.
  void applicationIsActive();
  // Keeps the defaults (no gate), tracks the session's end and sends what is there, within a background task; repeats a
  // failed registration.
  void applicationIsInactive();
  // Updates the modules.
  void applicationEnteredForeground();
  // Also when the application terminates: tracks the exit, and once it is recorded sends what is there.
  void applicationEnteredBackground();
  // Of the new-user notification; any thread. Gates: account, SDK.
  void initNewUser();

  // Their parts. The syncs save the current batch and flush on a global queue.
  void sessionStarted();
  void syncOnZrvAppExitWithApplication(platform::Application& application);
  void syncOnSessionTerminationWithApplication(platform::Application& application);
  void deviceUpdateOnSessionTerminationWithApplication(platform::Application& application);
  void endBGTaskWithIdentifier(platform::BackgroundTaskId task);

  // The background tasks that were begun last, 0 for none; not reset when a task ends.
  platform::BackgroundTaskId reportsBGTask() const { return reportsBGTask_; }
  void setReportsBGTask(platform::BackgroundTaskId task) { reportsBGTask_ = task; }
  platform::BackgroundTaskId deviceUpdateBGTask() const { return deviceUpdateBGTask_; }
  void setDeviceUpdateBGTask(platform::BackgroundTaskId task) { deviceUpdateBGTask_ = task; }
  platform::BackgroundTaskId zrvAppExitBGTask() const { return zrvAppExitBGTask_; }
  void setZrvAppExitBGTask(platform::BackgroundTaskId task) { zrvAppExitBGTask_ = task; }

  // The device-add body; empty when the core lacks what it needs, absent without query parameters.
  std::optional<Dictionary> getDeviceAddRequestBody() const;

 private:
  ZRAnalytics() = default;
  void migrateSDKUserDefaultsInfo();
  void addObserverForApplicationLifeCycle();
  // Main thread.
  void configureAppDelegateProxy();
  void flushOnSessionEnd(std::string_view operation, std::function<void()> atTheEnd);

  // Written on the main thread, read where the work ends.
  std::atomic<platform::BackgroundTaskId> reportsBGTask_{platform::kNoBackgroundTask};
  std::atomic<platform::BackgroundTaskId> deviceUpdateBGTask_{platform::kNoBackgroundTask};
  std::atomic<platform::BackgroundTaskId> zrvAppExitBGTask_{platform::kNoBackgroundTask};

  mutable platform::Mutex delegatesMutex_;
  std::weak_ptr<ZREventTriggerDelegate> inappTriggerDelegate_ ZR_GUARDED_BY(delegatesMutex_);
  std::weak_ptr<ZREventTriggerDelegate> messagingTriggerDelegate_ ZR_GUARDED_BY(delegatesMutex_);
};

}  // namespace zorvane
