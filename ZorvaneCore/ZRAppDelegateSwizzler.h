// Interception of the application delegate's callbacks.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Application/Application.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

inline constexpr std::string_view NSUserActivityTypeBrowsingWeb = "NSUserActivityTypeBrowsingWeb";

struct NSUserActivity {
  std::string activityType;
  std::optional<URL> webpageURL;
};

// The callbacks that can be intercepted. Called on the main thread.
class UIApplicationDelegate {
 public:
  virtual ~UIApplicationDelegate() = default;
  virtual bool applicationOpenURLOptions(platform::Application& /*application*/, const std::optional<URL>& /*url*/,
                                         const Dictionary& /*options*/) {
    return false;
  }
  virtual bool applicationOpenURLSourceApplicationAnnotation(platform::Application& /*application*/,
                                                             const std::optional<URL>& /*url*/,
                                                             const std::string& /*sourceApplication*/,
                                                             const Value& /*annotation*/) {
    return false;
  }
  virtual bool applicationContinueUserActivityRestorationHandler(
      platform::Application& /*application*/, const NSUserActivity& /*activity*/,
      const std::function<void(const Array&)>& /*restorationHandler*/) {
    return false;
  }
};

// Static operations only. Registration and callbacks belong to the main thread.
class ZRAppDelegateSwizzler {
 public:
  using InterceptorID = std::uint64_t;

  // Whether the host allows the interception.
  static bool isAppDelegateProxyEnabled();
  // From then on forEachInterceptor reaches the interceptors.
  static void proxyOriginalDelegate();
  // Interceptors are held weakly and called in registration order, before the host's own delegate. Their results are
  // ignored.
  static InterceptorID registerAppDelegateInterceptor(std::weak_ptr<UIApplicationDelegate> interceptor);
  static void unregisterAppDelegateInterceptorWithID(InterceptorID interceptor);

  // Called by the host for each callback of the operating system. Does nothing before proxyOriginalDelegate. An
  // exception from an interceptor is dropped.
  static void forEachInterceptor(const std::function<void(UIApplicationDelegate&)>& call);
};

}  // namespace zorvane
