// The core library's entry object.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "Platform/Dispatch/Mutex.h"

namespace zorvane {

// Told when the host has switched to another application identifier.
class ZRAppIDUpdateDelegate {
 public:
  virtual ~ZRAppIDUpdateDelegate() = default;
  virtual void appIDChangeHandledWithCompletionBlock(std::function<void()> completion) = 0;
};

// The SDK's configuration as the application chose it; kept over restarts.
class ZRSDKConfiguration {
 public:
  bool optOutIDFVTracking() const { return optOutIDFVTracking_.value; }
  void setOptOutIDFVTracking(bool optOut) { optOutIDFVTracking_ = {optOut, true}; }
  bool optOutIDFATracking() const { return optOutIDFATracking_.value; }
  void setOptOutIDFATracking(bool optOut) { optOutIDFATracking_ = {optOut, true}; }
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
    // Set on this object: what was not is left as it is when the configuration is stored.
    bool changed = false;
  };
  Choice<bool> optOutIDFVTracking_;
  Choice<bool> optOutIDFATracking_;
  Choice<bool> analyticsDisablePeriodicFlush_;
  Choice<std::optional<std::int64_t>> analyticsPeriodicFlushDuration_;
};

// Thread-safe.
class ZorvaneCore {
 public:
  static ZorvaneCore& sharedInstance();

  void setAppIdUpdateDelegate(std::weak_ptr<ZRAppIDUpdateDelegate> delegate);
  std::shared_ptr<ZRAppIDUpdateDelegate> appIdUpdateDelegate() const;

  // Whether a device identifier outlived the application's data.
  bool isDeviceUniqueIDPresentInKeyChain() const;

  ZRSDKConfiguration getDefaultSDKConfiguration() const;
  // Keeps what was set on the configuration; the completion (or none) is called later, on a global queue.
  void updateSDKConfigWithCompletionBlock(const ZRSDKConfiguration& configuration, std::function<void()> completion);

 private:
  ZorvaneCore() = default;

  mutable platform::Mutex mutex_;
  std::weak_ptr<ZRAppIDUpdateDelegate> delegate_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
