// The core library's entry object.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "Platform/Dispatch/LockedValue.h"
#include "Platform/Export.h"

namespace zorvane {

// Told by the core about a new application identifier.
class ZR_PUBLIC ZRAppIDUpdateDelegate {
 public:
  virtual ~ZRAppIDUpdateDelegate() = default;
  // The host has switched to another application identifier. The completion is called when the change is handled.
  virtual void appIDChangeHandledWithCompletionBlock(std::function<void()> completion) = 0;
};

// The application's choices about the SDK; kept over restarts.
class ZRSDKConfiguration {
 public:
  // Keeps the vendor identifier out of requests.
  bool optOutIDFVTracking() const { return optOutIDFVTracking_.value; }
  void setOptOutIDFVTracking(bool optOut) { optOutIDFVTracking_ = {optOut, true}; }
  // Keeps the advertising identifier out of requests.
  bool optOutIDFATracking() const { return optOutIDFATracking_.value; }
  void setOptOutIDFATracking(bool optOut) { optOutIDFATracking_ = {optOut, true}; }
  // Stops the flush timer.
  bool analyticsDisablePeriodicFlush() const { return analyticsDisablePeriodicFlush_.value; }
  void setAnalyticsDisablePeriodicFlush(bool disable) { analyticsDisablePeriodicFlush_ = {disable, true}; }
  // Seconds; absent while the application has not chosen one.
  std::optional<std::int64_t> analyticsPeriodicFlushDuration() const { return analyticsPeriodicFlushDuration_.value; }
  void setAnalyticsPeriodicFlushDuration(std::int64_t seconds) { analyticsPeriodicFlushDuration_ = {seconds, true}; }

 private:
  friend class CoreState;
  template <typename T>
  struct Choice {
    T value{};
    // Set on this object. Storing the configuration leaves unchanged choices alone.
    bool changed = false;
  };
  Choice<bool> optOutIDFVTracking_;
  Choice<bool> optOutIDFATracking_;
  Choice<bool> analyticsDisablePeriodicFlush_;
  Choice<std::optional<std::int64_t>> analyticsPeriodicFlushDuration_;
};

// Thread-safe.
class ZR_PUBLIC ZorvaneCore {
 public:
  // Never destroyed.
  static ZorvaneCore& sharedInstance();

  // Held weakly; null once it is destroyed.
  void setAppIdUpdateDelegate(std::weak_ptr<ZRAppIDUpdateDelegate> delegate);
  std::shared_ptr<ZRAppIDUpdateDelegate> appIdUpdateDelegate() const;

  // Whether a device identifier has outlived the application's data.
  bool isDeviceUniqueIDPresentInKeyChain() const;

  // A copy of the current choices.
  ZRSDKConfiguration getDefaultSDKConfiguration() const;
  // Stores what was set on the configuration. The completion, if any, is called later on a global queue.
  void updateSDKConfigWithCompletionBlock(const ZRSDKConfiguration& configuration, std::function<void()> completion);

 private:
  ZorvaneCore() = default;

  platform::LockedValue<std::weak_ptr<ZRAppIDUpdateDelegate>> delegate_;
};

}  // namespace zorvane
