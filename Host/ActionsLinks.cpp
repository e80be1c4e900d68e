// The actions that hand links and traffic sources to the module.

#include <optional>
#include <string>

#include "Host/Actions.h"
#include "Platform/HostServices.h"
#include "ZRAnalytics/SessionAndSource/ZRSource.h"
#include "ZRAnalytics/Utils/AppDelegateSwizzler/ZRAppDelegateAnalyticsProxy.h"
#include "ZRAnalytics/ZRHosting.h"
#include "ZorvaneCore/ZRAppDelegateSwizzler.h"

namespace zorvane::host {
namespace {

// Calls the interceptors on the main thread, as the operating system calls the application's delegate.
template <typename Callback>
void tellDelegate(Runtime& runtime, const Callback& callback) {
  runtime.onMainThread([&] { ZRAppDelegateSwizzler::forEachInterceptor(callback); });
}

platform::Application& application() {
  return *platform::hostServices().application;
}

}  // namespace

void playOpenURL(Runtime& runtime, const ScriptLine& line) {
  const auto text = line.text("url");
  const std::optional<URL> url = text ? std::optional(URL{*text}) : std::nullopt;
  const std::string via = line.text("via").value_or("app");
  if (via == "app") {
    runtime.onMainThread([&] { openURL(url); });
  } else if (via == "facade") {
    runtime.onMainThread([&] { runtime.analytics().processURL(url); });
  } else if (via == "proxy") {
    tellDelegate(runtime, [&](UIApplicationDelegate& interceptor) {
      interceptor.applicationOpenURLOptions(application(), url, {});
    });
  } else if (via == "activity") {
    tellDelegate(runtime, [&](UIApplicationDelegate& interceptor) {
      interceptor.applicationContinueUserActivityRestorationHandler(
          application(), {std::string(NSUserActivityTypeBrowsingWeb), url}, [](const Array&) {});
    });
  } else {
    throw NotAnAction("\"via\" must be \"app\", \"facade\", \"proxy\" or \"activity\"");
  }
}

void playSwizzle(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.onMainThread([] { ZRAppDelegateAnalyticsProxy::sharedProxy().swizzleMethodsIfPossible(); });
}

void playUnswizzle(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.onMainThread([] { ZRAppDelegateAnalyticsProxy::sharedProxy().unswizzleAllMethods(); });
}

void playSources(Runtime& runtime, const ScriptLine& line) {
  const Array* dictionaries = line.array("sources");
  const bool own = line.flag("own");
  if (!line.has("push")) {
    if (line.has("own")) throw NotAnAction("\"own\" belongs to \"push\"");
    std::optional<ZRSourceArray> sources;
    if (dictionaries) {
      sources.emplace();
      for (const Value& dictionary : *dictionaries) {
        sources->push_back(ZRSource::initSourceWithSourceInfoDict(dictionary));
      }
    }
    runtime.analytics().updateSourcesForCurrentSession(sources);
    return;
  }
  if (dictionaries) throw NotAnAction("\"sources\" and \"push\" exclude each other");
  const Value payload = line.value("push");
  const auto source =
      own ? ZRSource::initZrvSourceWithPushPayload(payload) : ZRSource::initSourceWithPushPayload(payload);
  if (source->isValidSource()) runtime.analytics().updateSourcesForCurrentSession(ZRSourceArray{source});
}

}  // namespace zorvane::host
