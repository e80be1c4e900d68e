#include "ZRAnalytics/EventManagement/EventPipelineTest.h"
#include "ZRAnalytics/Utils/AppDelegateSwizzler/ZRAppDelegateAnalyticsProxy.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRGeoLocation.h"
#include "ZRAnalytics/ZRAnalytics.h"

namespace zorvane::testing {
namespace {

class AppDelegateProxyTest : public EventPipelineTest {
 protected:
  using Call = std::function<void(UIApplicationDelegate&)>;

  static ZRAppDelegateAnalyticsProxy& proxy() { return ZRAppDelegateAnalyticsProxy::sharedProxy(); }
  static void open(const std::string& url) {
    ZRAppDelegateSwizzler::forEachInterceptor(
        [&](auto& interceptor) { EXPECT_FALSE(interceptor.applicationOpenURLOptions(URL{url}, {})); });
  }
  std::size_t incoming() const { return log_->count("Incoming URL : app://a?source=s"); }
};

TEST_F(AppDelegateProxyTest, InitialisationPutsItInPlaceOnTheMainThreadWhereItIsAllowed) {
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
            EXPECT_FALSE(proxy().didSwizzleMethods()) << "that is the main thread's";
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
  const std::string text = "app://a?source=s";
  open(text);
  EXPECT_EQ(incoming(), 0u) << "not in place";
  proxy().swizzleMethodsIfPossible();
  proxy().swizzleMethodsIfPossible();
  const std::optional<URL> url = URL{text};
  bool restored = false;
  const auto restore = [&](const Array&) { restored = true; };
  const struct {
    Call call;
    std::size_t count;
  } cases[] = {
      {[&](auto& delegate) {
         delegate.applicationOpenURLOptions(url, {{"key", 1}});
       },
       1},
      {[&](auto& delegate) { delegate.applicationOpenURLSourceApplicationAnnotation(url, "mail", 1); }, 1},
      {[&](auto& delegate) {
         delegate.applicationContinueUserActivityRestorationHandler({"NSUserActivityTypeBrowsingWeb", url}, restore);
       },
       1},
      {[&](auto& delegate) {
         delegate.applicationContinueUserActivityRestorationHandler({"handoff", url}, restore);
       },
       0},
      {[&](auto& delegate) { delegate.applicationOpenURLOptions(std::nullopt, {}); }, 0},
      {[&](auto& delegate) { delegate.applicationOpenURLSourceApplicationAnnotation(std::nullopt, "", {}); }, 0},
      {[&](auto& delegate) {
         delegate.applicationContinueUserActivityRestorationHandler({"NSUserActivityTypeBrowsingWeb", {}}, restore);
       },
       0},
  };
  for (const auto& [call, count] : cases) {
    log_->clear();
    ZRAppDelegateSwizzler::forEachInterceptor(call);
    EXPECT_EQ(incoming(), count) << &call - &cases[0].call;
    EXPECT_EQ(log_->messages().empty(), count == 0);
  }
  EXPECT_FALSE(restored);
  EXPECT_EQ(ZRSessionManager::sharedSessionManager().getCurrentSessionSourceInfoArray(),
            (Array{Dictionary{{"source", "s"}, {"source_url", text}}}));

  log_->clear();
  ZRAnalytics::sharedInstance().processURL(url);
  EXPECT_EQ(log_->messages(), Names{"AppDelegate proxy is enabled."});
  proxy().unswizzleAllMethods();
  proxy().swizzleMethodsIfPossible();
  log_->clear();
  open(text);
  EXPECT_TRUE(log_->messages().empty()) << "a proxy registers once in its life";
}

TEST_F(AppDelegateProxyTest, ReplacedOperationsAreRestoredAsFarAsTheTableNamesThem) {
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
  EXPECT_EQ(proxy->originalImplementationForSelector("open"), first) << "its own handler is no original";
  EXPECT_EQ(proxy->originalImplementationForSelector("idle"), nullptr);
  EXPECT_TRUE(log_->messages().empty());
  swizzle(*proxy, "undeclared");
  proxy->swizzleSelectorInClassWithImplementationInProtocol("open", "Nobody", ours, protocol);
  EXPECT_EQ(log_->messages(), (Names{"Could not add method for undeclared to class Host",
                                     "Could not add method for open to class Nobody"}));
  swizzle(*proxy, "close");
  EXPECT_EQ(proxy->swizzledSelectorsByClass(),
            (ZRAppDelegateAnalyticsProxy::SelectorsByClass{{"Host", {"close"}}, {"Nobody", {"open"}}}));

  // By hand: an original goes back and is forgotten; without one the operation forwards.
  proxy->unswizzleSelectorInClass("open", "Host");
  EXPECT_EQ(at("open"), first);
  EXPECT_EQ(proxy->originalImplementationForSelector("open"), nullptr);
  proxy->unswizzleSelectorInClass("idle", "Host");
  EXPECT_EQ(at("idle"), forwarding);
  proxy->unswizzleSelectorInClass("nothing", "Host");

  // All: only what was recorded last for a class. The end of a proxy does the same.
  proxy->unswizzleAllMethods();
  EXPECT_EQ(at("close"), second);
  EXPECT_EQ(at("added"), ours);
  EXPECT_TRUE(proxy->swizzledSelectorsByClass().empty());
  swizzle(*proxy, "close");
  proxy.reset();
  EXPECT_EQ(at("close"), second);

  // A class that is named like an operation is where the table grows.
  proxy = ZRAppDelegateAnalyticsProxy::init();
  proxy->trackSwizzledSelectorOfClass("one", "two");
  proxy->trackSwizzledSelectorOfClass("two", "three");
  EXPECT_EQ(proxy->swizzledSelectorsByClass().at("three"), (Names{"one", "two"}));
}

TEST_F(AppDelegateProxyTest, APropertyIsReadWhenItIsThereAndOfTheExpectedClass) {
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
