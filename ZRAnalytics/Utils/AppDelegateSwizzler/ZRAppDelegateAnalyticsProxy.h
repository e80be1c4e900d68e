// Sees the URLs and web activities that open the application, without the host forwarding them.
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

// Registered with the core as an interceptor of the application delegate's callbacks. It also keeps a table of
// operations that were replaced in classes of the handler registry, and puts them back. Main thread only.
class ZRAppDelegateAnalyticsProxy final : public UIApplicationDelegate,
                                          public std::enable_shared_from_this<ZRAppDelegateAnalyticsProxy> {
 public:
  static std::shared_ptr<ZRAppDelegateAnalyticsProxy> init();
  // Never destroyed.
  static ZRAppDelegateAnalyticsProxy& sharedProxy();
  // Undoes everything.
  ~ZRAppDelegateAnalyticsProxy() override;

  // Whether the host allows the proxy.
  static bool canSwizzleMethods();
  // Registers with the core, once in a proxy's life; the facade leaves opened URLs to the proxy from then on.
  void swizzleMethodsIfPossible();
  // Unregisters, for good, and restores what the table of classes names.
  void unswizzleAllMethods();

  // Puts the implementation in the place of the class's operation and remembers the one so far, unless that was null,
  // the same, or only forwarding. A class without the operation gets it if the protocol declares it; that it does not
  // is logged.
  void swizzleSelectorInClassWithImplementationInProtocol(std::string_view operation, std::string_view className,
                                                          const ZRImplementation& implementation,
                                                          const ZRProtocol& protocol);
  // Puts the remembered implementation back and forgets it; without one the operation only forwards from now on.
  void unswizzleSelectorInClass(std::string_view operation, std::string_view className);

  // One original for each operation name, whatever the class; a null one changes nothing.
  void saveOriginalImplementationForSelector(ZRImplementation implementation, std::string_view operation);
  ZRImplementation originalImplementationForSelector(std::string_view operation) const;
  void removeImplementationForSelector(std::string_view operation);
  // A class's entry becomes what stands under the operation's name, plus the operation: as classes are not named like
  // operations, it names the last operation only.
  void trackSwizzledSelectorOfClass(std::string_view operation, std::string_view className);
  // The class's forwarding implementation.
  static ZRImplementation nonExistantMethodImplementationForClass(std::string_view className);

  // These hand a URL that is there to the session manager and answer false. A continued activity counts when it is
  // browsing the web; the restoration handler is not called.
  bool applicationOpenURLOptions(const std::optional<URL>& url, const Dictionary& options) override;
  bool applicationOpenURLSourceApplicationAnnotation(const std::optional<URL>& url,
                                                     const std::string& sourceApplication,
                                                     const Value& annotation) override;
  bool applicationContinueUserActivityRestorationHandler(
      const NSUserActivity& activity, const std::function<void(const Array&)>& restorationHandler) override;

  using SelectorsByClass = std::map<std::string, std::vector<std::string>, std::less<>>;
  bool didSwizzleMethods() const { return didSwizzleMethods_; }
  const SelectorsByClass& swizzledSelectorsByClass() const { return swizzledSelectorsByClass_; }
  // Absent until registered.
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
class ZRNamedProperties : public Object {
 public:
  // Nil when it has none of that name.
  virtual Value propertyNamed(std::string_view name) const = 0;
};

// Whether a value is an instance of a class, or of one derived from it.
using ZRClassCheck = bool (*)(const Value& value);

// The property of that name (of a value that holds ZRNamedProperties) if it is of the expected class; null expects
// nothing of it. Nil otherwise.
Value getNamedPropertyFromObject(const Value& object, std::string_view name, ZRClassCheck expectedClass);

}  // namespace zorvane
