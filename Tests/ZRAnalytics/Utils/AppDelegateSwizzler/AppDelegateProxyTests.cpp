#include "ZRAnalytics/EventManagement/EventPipelineTest.h"
#include "ZRAnalytics/Utils/AppDelegateSwizzler/ZRAppDelegateAnalyticsProxy.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRGeoLocation.h"
#include "ZRAnalytics/ZRAnalytics.h"

namespace zorvane::testing {
namespace {

class AppDelegateProxyTest : public EventPipelineTest {
 protected:
  static ZRAppDelegateAnalyticsProxy& proxy() { return ZRAppDelegateAnalyticsProxy::sharedProxy(); }
  static platform::Application& application() { return *platform::hostServices().application; }
  static void open(const URL& url) {
    ZRAppDelegateSwizzler::forEachInterceptor(
        [&](auto& interceptor) { EXPECT_FALSE(interceptor.applicationOpenURLOptions(application(), url, {})); });
  }
};

TEST_F(AppDelegateProxyTest, InitializationRegistersItOnTheMainThreadWhereAllowed) {
  const struct {
    Dictionary configuration;
    bool allowed;
  } cases[] = {{{}, true}, {{{"account_active", false}}, false}, {{{"app_delegate_proxy_enabled", false}}, false}};
  for (const auto& c : cases) {
    for (const bool fromMain : {true, false}) {
      inEarlierLaunch([&] {
        startWithSession(c.configuration);
        ZRAnalytics& facade = ZRAnalytics::sharedInstance();
        if (fromMain) {
          facade.initializeAnalytics();
        } else {
          scheduler_->globalQueue(platform::Priority::Default).async([&] {
            facade.initializeAnalytics();
            EXPECT_FALSE(proxy().didSwizzleMethods()) << "left to the main thread";
          });
          settle();
        }
        EXPECT_EQ(log_->count("Set proxy for Open URL callbacks"), c.allowed ? 1u : 0u);
        EXPECT_EQ(proxy().didSwizzleMethods(), c.allowed);
        EXPECT_EQ(proxy().appDelegateInterceptorID().has_value(), c.allowed);
        EXPECT_EQ(ZRAnalyticsUtils::isAppDelegateProxyConfigured(), c.allowed);
      });
    }
  }
}

TEST_F(AppDelegateProxyTest, OpenedURLsAndWebActivitiesArriveOnceWhileRegistered) {
  startWithSession();
  const URL url{"app://a?source=s"};
  const auto incoming = [this] { return log_->count("Incoming URL : app://a?source=s"); };
  open(url);
  EXPECT_EQ(incoming(), 0u) << "not in place";
  for (int i = 0; i < 2; ++i) proxy().swizzleMethodsIfPossible();
  open(url);
  EXPECT_EQ(incoming(), 1u);
  EXPECT_EQ(ZRSessionManager::sharedSessionManager().getCurrentSessionSourceInfoArray(),
            (Array{Dictionary{{"source", "s"}, {"source_url", url.absoluteString}}}));
  bool restored = false;
  const auto restore = [&](const Array&) { restored = true; };
  const std::string web = "NSUserActivityTypeBrowsingWeb";
  EXPECT_FALSE(proxy().applicationOpenURLSourceApplicationAnnotation(application(), url, "mail", 1));
  EXPECT_FALSE(proxy().applicationContinueUserActivityRestorationHandler(application(), {web, url}, restore));
  EXPECT_EQ(incoming(), 3u);
  log_->clear();
  EXPECT_FALSE(proxy().applicationContinueUserActivityRestorationHandler(application(), {"handoff", url}, restore));
  EXPECT_FALSE(proxy().applicationContinueUserActivityRestorationHandler(application(), {web, {}}, restore));
  EXPECT_FALSE(proxy().applicationOpenURLSourceApplicationAnnotation(application(), std::nullopt, "", {}));
  EXPECT_FALSE(proxy().applicationOpenURLOptions(application(), std::nullopt, {}));
  EXPECT_TRUE(log_->messages().empty());
  EXPECT_FALSE(restored);

  proxy().unswizzleAllMethods();
  proxy().swizzleMethodsIfPossible();
  open(url);
  EXPECT_TRUE(log_->messages().empty()) << "a proxy registers once in its life";
}

TEST_F(AppDelegateProxyTest, OnlyOperationsInTheTableAreRestored) {
  ZRHandlerRegistry& registry = ZRHandlerRegistry::sharedRegistry();
  const auto handler = [] { return std::make_shared<const ZRHandler>([](const Array&) { return Value(1); }); };
  const ZRImplementation forwarding = ZRAppDelegateAnalyticsProxy::nonExistantMethodImplementationForClass("Host");
  const ZRImplementation first = handler();
  const ZRImplementation second = handler();
  const ZRImplementation ours = handler();
  const ZRProtocol protocol{"added", "open", "close"};
  EXPECT_TRUE((*forwarding)({}).isNil());
  registry.addClass("Host");
  registry.addOperation("Host", "open", first);
  registry.addOperation("Host", "close", second);
  registry.addOperation("Host", "idle", forwarding);
  EXPECT_FALSE(registry.addOperation("Host", "open", second));
  const auto at = [&](const char* operation) { return registry.implementation("Host", operation); };
  const auto swizzle = [&](ZRAppDelegateAnalyticsProxy& proxy, const char* operation) {
    proxy.swizzleSelectorInClassWithImplementationInProtocol(operation, "Host", ours, protocol);
  };

  start();
  auto proxy = ZRAppDelegateAnalyticsProxy::init();
  for (const char* operation : {"open", "open", "idle", "added"}) swizzle(*proxy, operation);
  for (const char* operation : {"open", "idle", "added"}) EXPECT_EQ(at(operation), ours) << operation;
  EXPECT_EQ(proxy->originalImplementationForSelector("open"), first) << "our own handler is not an original";
  EXPECT_EQ(proxy->originalImplementationForSelector("idle"), nullptr);
  EXPECT_TRUE(log_->messages().empty());
  swizzle(*proxy, "undeclared");
  proxy->swizzleSelectorInClassWithImplementationInProtocol("open", "Nobody", ours, protocol);
  EXPECT_EQ(log_->messages(), (Names{"Could not add method for undeclared to class Host",
                                     "Could not add method for open to class Nobody"}));
  swizzle(*proxy, "close");
  EXPECT_EQ(proxy->swizzledSelectorsByClass(),
            (ZRAppDelegateAnalyticsProxy::SelectorsByClass{{"Host", {"close"}}, {"Nobody", {"open"}}}));

  // unswizzleSelectorInClass puts the original back and forgets it. Without an original the operation forwards.
  proxy->unswizzleSelectorInClass("open", "Host");
  EXPECT_EQ(at("open"), first);
  EXPECT_EQ(proxy->originalImplementationForSelector("open"), nullptr);
  proxy->unswizzleSelectorInClass("idle", "Host");
  EXPECT_EQ(at("idle"), forwarding);
  proxy->unswizzleSelectorInClass("nothing", "Host");

  // unswizzleAllMethods and the destructor restore only the operation recorded last for a class.
  proxy->unswizzleAllMethods();
  EXPECT_EQ(at("close"), second);
  EXPECT_EQ(at("added"), ours);
  EXPECT_TRUE(proxy->swizzledSelectorsByClass().empty());
  swizzle(*proxy, "close");
  proxy.reset();
  EXPECT_EQ(at("close"), second);

  // The table grows only for a class with the name of an operation.
  proxy = ZRAppDelegateAnalyticsProxy::init();
  proxy->trackSwizzledSelectorOfClass("one", "two");
  proxy->trackSwizzledSelectorOfClass("two", "three");
  EXPECT_EQ(proxy->swizzledSelectorsByClass().at("three"), (Names{"one", "two"}));
}

TEST_F(AppDelegateProxyTest, PropertyIsReadWhenItExistsAndHasTheExpectedClass) {
  class Window final : public ZRNamedProperties {
   public:
    std::string description() const override { return "window"; }
    Value propertyNamed(std::string_view name) const override {
      return name == "title" ? Value("shop") : name == "number" ? Value(5) : Value();
    }
  };
  const Value window = std::make_shared<Window>();
  const ZRClassCheck text = [](const Value& value) { return value.isString(); };
  EXPECT_EQ(getNamedPropertyFromObject(window, "title", text), Value("shop"));
  EXPECT_EQ(getNamedPropertyFromObject(window, "number", nullptr), Value(5));
  EXPECT_EQ(getNamedPropertyFromObject(window, "number", text), Value());
  EXPECT_EQ(getNamedPropertyFromObject(window, "colour", nullptr), Value());
  EXPECT_EQ(getNamedPropertyFromObject(ZRGeoLocation::initWithLatitudeAndLongitude(1, 2), "title", nullptr), Value());
  EXPECT_EQ(getNamedPropertyFromObject(nullptr, "title", nullptr), Value());
}

}  // namespace
}  // namespace zorvane::testing
