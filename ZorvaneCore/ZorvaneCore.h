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
  bool optOutIDFVTracking() const { return optOutIDFVTracking_; }
  void setOptOutIDFVTracking(bool optOut) { optOutIDFVTracking_ = optOut; }
  bool optOutIDFATracking() const { return optOutIDFATracking_; }
  void setOptOutIDFATracking(bool optOut) { optOutIDFATracking_ = optOut; }
  bool analyticsDisablePeriodicFlush() const { return analyticsDisablePeriodicFlush_; }
  void setAnalyticsDisablePeriodicFlush(bool disable) { analyticsDisablePeriodicFlush_ = disable; }
  // Seconds; absent while the application has not chosen one.
  std::optional<std::int64_t> analyticsPeriodicFlushDuration() const { return analyticsPeriodicFlushDuration_; }
  void setAnalyticsPeriodicFlushDuration(std::int64_t seconds) { analyticsPeriodicFlushDuration_ = seconds; }

 private:
  bool optOutIDFVTracking_ = false;
  bool optOutIDFATracking_ = false;
  bool analyticsDisablePeriodicFlush_ = false;
  std::optional<std::int64_t> analyticsPeriodicFlushDuration_;
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
  // Keeps the configuration; the completion (or none) is called later, on a global queue.
  void updateSDKConfigWithCompletionBlock(const ZRSDKConfiguration& configuration, std::function<void()> completion);

 private:
  ZorvaneCore() = default;

  mutable platform::Mutex mutex_;
  std::weak_ptr<ZRAppIDUpdateDelegate> delegate_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
