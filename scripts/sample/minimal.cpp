// The smallest application that embeds the module: it gives the host's folders and transport, starts, tracks, flushes.
#include <memory>
#include <utility>

#include "Platform/HostServices.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/CoreSetup.h"

using namespace zorvane;

namespace {

// A device without a network: every batch stays and waits.
class Offline final : public NetworkTransport {
 public:
  void send(TransportRequest, std::function<void(const TransportResponse&)> completion) override {
    completion({.status = 0, .body = {}, .error = "offline"});
  }
};

}  // namespace

int main() {
  platform::HostServices host;
  host.directories = {"shop/Documents", "shop/Library", "shop/Defaults"};
  if (!platform::configureHost(std::move(host))) return 1;
  CoreSetup core;
  core.endpoint = "https://collect.example.com";
  core.appId = "SHOP";
  core.remoteConfiguration = {{"event_batch_count", 20}};
  core.transport = std::make_shared<Offline>();
  configureCore(std::move(core));

  auto& analytics = ZRAnalytics::sharedInstance();
  analytics.initializeAnalytics();
  analytics.trackEventWithProperties("Purchase", ZRProperties::initWithAttributes({{"price", 10.5}, {"sku", "A1"}}));
  analytics.flushWithCompletionBlock([](bool) {});
  platform::hostServices().scheduler->waitUntilIdle();
}
