#include "ZRAnalytics/Utils/AppDelegateSwizzler/ZRAppDelegateAnalyticsProxy.h"

#include <utility>

#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRReport.h"

namespace zorvane {
namespace {

ZRHandlerRegistry& registry() {
  return ZRHandlerRegistry::sharedRegistry();
}

constexpr char kFile[] = "ZRAppDelegateAnalyticsProxy";

// Guarded: an exception must not reach the application's callbacks.
void process(const std::optional<URL>& url, const char* operation) {
  guarded({kFile, operation}, "exception in processing URL : %@", [&] {
    if (url) ZRSessionManager::processURL(*url);
  });
}

}  // namespace

std::shared_ptr<ZRAppDelegateAnalyticsProxy> ZRAppDelegateAnalyticsProxy::init() {
  return std::shared_ptr<ZRAppDelegateAnalyticsProxy>(new ZRAppDelegateAnalyticsProxy);
}

ZRAppDelegateAnalyticsProxy& ZRAppDelegateAnalyticsProxy::sharedProxy() {
  static const auto* const shared = new std::shared_ptr<ZRAppDelegateAnalyticsProxy>(init());
  return **shared;
}

ZRAppDelegateAnalyticsProxy::~ZRAppDelegateAnalyticsProxy() {
  unswizzleAllMethods();
}

bool ZRAppDelegateAnalyticsProxy::canSwizzleMethods() {
  return ZRAppDelegateSwizzler::isAppDelegateProxyEnabled();
}

void ZRAppDelegateAnalyticsProxy::swizzleMethodsIfPossible() {
  if (didSwizzleMethods_) return;
  ZRAppDelegateSwizzler::proxyOriginalDelegate();
  appDelegateInterceptorID_ = ZRAppDelegateSwizzler::registerAppDelegateInterceptor(weak_from_this());
  didSwizzleMethods_ = true;
  ZRAnalyticsUtils::appDelegateProxyConfigured();
}

void ZRAppDelegateAnalyticsProxy::unswizzleAllMethods() {
  if (appDelegateInterceptorID_) {
    ZRAppDelegateSwizzler::unregisterAppDelegateInterceptorWithID(*appDelegateInterceptorID_);
  }
  for (const auto& [className, operations] : swizzledSelectorsByClass_) {
    for (const std::string& operation : operations) unswizzleSelectorInClass(operation, className);
  }
  swizzledSelectorsByClass_.clear();
}

void ZRAppDelegateAnalyticsProxy::swizzleSelectorInClassWithImplementationInProtocol(
    std::string_view operation, std::string_view className, const ZRImplementation& implementation,
    const ZRProtocol& protocol) {
  if (registry().hasOperation(className, operation)) {
    auto original = registry().replaceImplementation(className, operation, implementation);
    if (original != implementation && original != nonExistantMethodImplementationForClass(className)) {
      saveOriginalImplementationForSelector(std::move(original), operation);
    }
  } else if (!protocol.contains(operation) || !registry().addOperation(className, operation, implementation)) {
    logLine("Could not add method for %@ to class %@", {operation, className});
  }
  trackSwizzledSelectorOfClass(operation, className);
}

void ZRAppDelegateAnalyticsProxy::unswizzleSelectorInClass(std::string_view operation, std::string_view className) {
  if (!registry().hasOperation(className, operation)) return;
  auto original = originalImplementationForSelector(operation);
  if (original) {
    removeImplementationForSelector(operation);
  } else {
    original = nonExistantMethodImplementationForClass(className);
  }
  registry().replaceImplementation(className, operation, std::move(original));
}

void ZRAppDelegateAnalyticsProxy::saveOriginalImplementationForSelector(ZRImplementation implementation,
                                                                        std::string_view operation) {
  if (implementation) originalAppDelegateImps_.insert_or_assign(std::string(operation), std::move(implementation));
}

ZRImplementation ZRAppDelegateAnalyticsProxy::originalImplementationForSelector(std::string_view operation) const {
  const auto found = originalAppDelegateImps_.find(operation);
  return found == originalAppDelegateImps_.end() ? nullptr : found->second;
}

void ZRAppDelegateAnalyticsProxy::removeImplementationForSelector(std::string_view operation) {
  const auto found = originalAppDelegateImps_.find(operation);
  if (found != originalAppDelegateImps_.end()) originalAppDelegateImps_.erase(found);
}

void ZRAppDelegateAnalyticsProxy::trackSwizzledSelectorOfClass(std::string_view operation, std::string_view className) {
  std::vector<std::string> operations;
  // Looked up by operation but stored by class, as the header says.
  const auto found = swizzledSelectorsByClass_.find(operation);
  if (found != swizzledSelectorsByClass_.end()) operations = found->second;
  operations.emplace_back(operation);
  swizzledSelectorsByClass_.insert_or_assign(std::string(className), std::move(operations));
}

ZRImplementation ZRAppDelegateAnalyticsProxy::nonExistantMethodImplementationForClass(std::string_view className) {
  return registry().implementation(className, "aNonExistantMethod");
}

bool ZRAppDelegateAnalyticsProxy::applicationOpenURLOptions(platform::Application& /*application*/,
                                                            const std::optional<URL>& url,
                                                            const Dictionary& /*options*/) {
  process(url, "applicationOpenURLOptions");
  return false;
}

bool ZRAppDelegateAnalyticsProxy::applicationOpenURLSourceApplicationAnnotation(
    platform::Application& /*application*/, const std::optional<URL>& url, const std::string& /*sourceApplication*/,
    const Value& /*annotation*/) {
  process(url, "applicationOpenURLSourceApplicationAnnotation");
  return false;
}

bool ZRAppDelegateAnalyticsProxy::applicationContinueUserActivityRestorationHandler(
    platform::Application& /*application*/, const NSUserActivity& activity,
    const std::function<void(const Array&)>& /*restorationHandler*/) {
  if (activity.activityType == NSUserActivityTypeBrowsingWeb) {
    process(activity.webpageURL, "applicationContinueUserActivityRestorationHandler");
  }
  return false;
}

Value getNamedPropertyFromObject(const Value& object, std::string_view name, ZRClassCheck expectedClass) {
  const auto properties = object.asObject<ZRNamedProperties>();
  if (!properties) return {};
  Value value;
  guarded({kFile, "getNamedPropertyFromObject"}, "exception : %@", [&] {
    Value found = properties->propertyNamed(name);
    if (!expectedClass || expectedClass(found)) value = std::move(found);
  });
  return value;
}

}  // namespace zorvane
