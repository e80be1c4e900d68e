// Sees the URLs and web activities that open the application, so that the host need not forward them.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZRAnalytics/Utils/AppDelegateSwizzler/ZRHandlerRegistry.h"
#include "ZorvaneCore/ZRAppDelegateSwizzler.h"

namespace zorvane {

// An interceptor of the application delegate's callbacks, registered with the core. It can also replace operations of
// classes in the handler registry, and restores them later. Main thread only.
class ZRAppDelegateAnalyticsProxy final : public UIApplicationDelegate,
                                          public std::enable_shared_from_this<ZRAppDelegateAnalyticsProxy> {
 public:
  static std::shared_ptr<ZRAppDelegateAnalyticsProxy> init();
  // Never destroyed.
  static ZRAppDelegateAnalyticsProxy& sharedProxy();
  // As unswizzleAllMethods.
  ~ZRAppDelegateAnalyticsProxy() override;

  // Whether the host allows the proxy.
  static bool canSwizzleMethods();
  // Registers with the core, at most once per proxy. From then on the facade leaves opened URLs to the proxy.
  void swizzleMethodsIfPossible();
  // Unregisters permanently and restores the recorded operations.
  void unswizzleAllMethods();

  // Replaces the class's operation and saves the original, unless that is null, the same, or the forwarding one. A
  // class without the operation gets it if the protocol declares it; otherwise that is logged. Records the operation.
  void swizzleSelectorInClassWithImplementationInProtocol(std::string_view operation, std::string_view className,
                                                          const ZRImplementation& implementation,
                                                          const ZRProtocol& protocol);
  // Restores the saved original and removes it from the saved ones; without one the operation forwards from then on.
  void unswizzleSelectorInClass(std::string_view operation, std::string_view className);

  // There is one original per operation name, for all classes. Saving null does nothing; null is returned if none is
  // saved.
  void saveOriginalImplementationForSelector(ZRImplementation implementation, std::string_view operation);
  ZRImplementation originalImplementationForSelector(std::string_view operation) const;
  void removeImplementationForSelector(std::string_view operation);
  // Sets the class's entry to the entry under the operation's name plus the operation. Classes are not named like
  // operations, so in effect the entry is the last operation only.
  void trackSwizzledSelectorOfClass(std::string_view operation, std::string_view className);
  // The class's forwarding implementation.
  static ZRImplementation nonExistantMethodImplementationForClass(std::string_view className);

  // These pass a present URL to the session manager and return false. Only web-browsing activities count. The
  // application and the restoration handler are not used.
  bool applicationOpenURLOptions(platform::Application& application, const std::optional<URL>& url,
                                 const Dictionary& options) override;
  bool applicationOpenURLSourceApplicationAnnotation(platform::Application& application, const std::optional<URL>& url,
                                                     const std::string& sourceApplication,
                                                     const Value& annotation) override;
  bool applicationContinueUserActivityRestorationHandler(
      platform::Application& application, const NSUserActivity& activity,
      const std::function<void(const Array&)>& restorationHandler) override;

  using SelectorsByClass = std::map<std::string, std::vector<std::string>, std::less<>>;
  bool didSwizzleMethods() const { return didSwizzleMethods_; }
  const SelectorsByClass& swizzledSelectorsByClass() const { return swizzledSelectorsByClass_; }
  // Absent until the proxy is registered.
  std::optional<ZRAppDelegateSwizzler::InterceptorID> appDelegateInterceptorID() const {
    return appDelegateInterceptorID_;
  }

 private:
  ZRAppDelegateAnalyticsProxy() = default;

  bool didSwizzleMethods_ = false;
  std::map<std::string, ZRImplementation, std::less<>> originalAppDelegateImps_;
  SelectorsByClass swizzledSelectorsByClass_;
  std::optional<ZRAppDelegateSwizzler::InterceptorID> appDelegateInterceptorID_;
};

// An object whose properties can be read by name.
class ZRNamedProperties : public platform::ObjectOf<ZRNamedProperties> {
 public:
  // Nil if there is no such property.
  virtual Value propertyNamed(std::string_view name) const = 0;
};

// Whether a value is an instance of a class or of a subclass.
using ZRClassCheck = bool (*)(const Value& value);

// The named property of an object that is a ZRNamedProperties, if it passes the class check (null: any value passes).
// Nil otherwise, and if reading it throws.
Value getNamedPropertyFromObject(const Value& object, std::string_view name, ZRClassCheck expectedClass);

}  // namespace zorvane
