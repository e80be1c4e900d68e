// Interception of what the operating system tells the application's delegate.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

inline constexpr std::string_view NSUserActivityTypeBrowsingWeb = "NSUserActivityTypeBrowsingWeb";

struct NSUserActivity {
  std::string activityType;
  std::optional<URL> webpageURL;
};

// The callbacks of an application's delegate that can be intercepted. Called on the main thread.
class UIApplicationDelegate {
 public:
  virtual ~UIApplicationDelegate() = default;
  virtual bool applicationOpenURLOptions(const std::optional<URL>& /*url*/, const Dictionary& /*options*/) {
    return false;
  }
  virtual bool applicationOpenURLSourceApplicationAnnotation(const std::optional<URL>& /*url*/,
                                                             const std::string& /*sourceApplication*/,
                                                             const Value& /*annotation*/) {
    return false;
  }
  virtual bool applicationContinueUserActivityRestorationHandler(
      const NSUserActivity& /*activity*/, const std::function<void(const Array&)>& /*restorationHandler*/) {
    return false;
  }
};

// Class operations only. Registration and callbacks belong to the main thread.
class ZRAppDelegateSwizzler {
 public:
  using InterceptorID = std::uint64_t;

  // Whether the host allows the interception.
  static bool isAppDelegateProxyEnabled();
  // From now on the callbacks below reach the interceptors.
  static void proxyOriginalDelegate();
  // Interceptors are called in the order of their registration, before the host's own delegate; their result is
  // ignored.
  static InterceptorID registerAppDelegateInterceptor(std::weak_ptr<UIApplicationDelegate> interceptor);
  static void unregisterAppDelegateInterceptorWithID(InterceptorID interceptor);

  // The host's way in: what the operating system told it goes through the interceptors. An interceptor that throws
  // costs its own call.
  static void forEachInterceptor(const std::function<void(UIApplicationDelegate&)>& call);
};

}  // namespace zorvane
