// The module's one public entry: what a host application and the core library call.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "Platform/Dispatch/Mutex.h"
#include "ZRAnalytics/SessionAndSource/ZRSession.h"
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

  // Once, after the core is set up.
  void initializeAnalytics();
  // For the start and every return to the foreground: refreshes the session and sends what earlier sessions left.
  // Gate: account.
  void updateModules();

  // --- Events

  // Records the event (its name is text) with its properties, or none, and returns; it is sent with its batch. Two
  // events of one thread may be recorded in either order. Gates: account, SDK.
  void trackEventWithProperties(const Value& name, std::shared_ptr<const ZRProperties> properties);

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

  // A URL that opened the application; absent does nothing. Gates: account, SDK.
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

 private:
  ZRAnalytics() = default;
  void migrateSDKUserDefaultsInfo();

  mutable platform::Mutex delegatesMutex_;
  std::weak_ptr<ZREventTriggerDelegate> inappTriggerDelegate_ ZR_GUARDED_BY(delegatesMutex_);
  std::weak_ptr<ZREventTriggerDelegate> messagingTriggerDelegate_ ZR_GUARDED_BY(delegatesMutex_);
};

}  // namespace zorvane
