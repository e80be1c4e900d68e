// How another module of the SDK uses this one: an in-app messaging module observes every tracked event and shows each
// message whose condition the event satisfies. Prints the messages.

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Formats/JSON.h"
#include "Platform/HostServices.h"
#include "ZRAnalytics/Utils/ZRConditionEvaluator/ZREventCondition.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/CoreSetup.h"

using namespace zorvane;

namespace {

// In the form in which the service sends them.
constexpr std::string_view kMessages = R"([
  {"text": "Free delivery above 50!",
   "condition": {"eventName": "Added to cart", "filters": [
     {"name": "price", "data_type": "double", "operator": "lessThan", "value": 50}]}},
  {"text": "Socks to go with your shoes?",
   "condition": {"eventName": "Added to cart", "filter_operator": "or", "filters": [
     {"name": "product", "data_type": "string", "operator": "contains", "value": "shoe"},
     {"name": "tags", "data_type": "string", "operator": "in", "value": ["running", "hiking"]}]}},
  {"text": "Late, but on its way.",
   "condition": {"eventName": "Order placed", "filters": [
     {"name": "member", "data_type": "bool", "operator": "is", "value": true},
     {"name": "delivery", "data_type": "datetime", "operator": "after", "value": "2026-12-24T00:00:00.000Z"}]}},
  {"text": "Thank you!", "condition": {"eventName": "Order placed"}}
])";

class InAppModule final : public ZREventTriggerDelegate {
 public:
  // Throws ValueError for malformed text.
  explicit InAppModule(std::string_view json) {
    const auto parsed = platform::parseJSON(json);
    const Array* const list = parsed ? parsed.value().asArray() : nullptr;
    if (!list) throw ValueError("the messages are no JSON array");
    for (const Value& entry : *list) {
      const Value condition = entry.isDictionary() ? entry.asDictionary()->objectForKey("condition") : Value();
      if (!condition.isDictionary()) throw ValueError("a message has no condition");
      messages_.push_back({entry.asDictionary()->objectForKey("text").description(),
                           ZREventCondition::initWithDictionary(*condition.asDictionary())});
    }
  }

  // Called on the module's event queue: decide here, show the message on the main thread.
  void eventTrackedWithNameAndEventAttr(const Value& name, Dictionary& event) override {
    for (const Message& message : messages_) {
      if (!message.condition->checkIfAttributeConditionSatisfiedForEventAndAttributes(name, event)) continue;
      platform::hostServices().scheduler->mainQueue().async(
          [event = name.description(), text = message.text] { std::printf("%s: %s\n", event.c_str(), text.c_str()); });
    }
  }

 private:
  struct Message {
    std::string text;
    std::shared_ptr<const ZREventCondition> condition;
  };
  // Immutable after construction: the event queue reads it without a lock.
  std::vector<Message> messages_;
};

void track(std::string_view name, std::shared_ptr<const ZRProperties> properties) {
  ZRAnalytics::sharedInstance().trackEventWithProperties(name, std::move(properties));
  // Waits until the event's messages are printed; the program's end would cut them off. An application need not wait.
  platform::hostServices().scheduler->waitUntilIdle();
}

}  // namespace

int main() {
  std::string folder = (std::filesystem::temp_directory_path() / "in-app-XXXXXX").string();
  if (!mkdtemp(folder.data())) return 1;
  platform::HostServices host;
  host.directories = {folder + "/Documents", folder + "/Library", folder + "/Defaults"};
  if (!platform::configureHost(std::move(host))) return 1;
  CoreSetup core;
  core.remoteConfiguration = {{"periodic_flush_enabled", false}};
  configureCore(std::move(core));

  // The facade holds its delegate weakly.
  const auto module = std::make_shared<InAppModule>(kMessages);
  ZRAnalytics& analytics = ZRAnalytics::sharedInstance();
  analytics.setInappTriggerDelegate(module);
  analytics.initializeAnalytics();

  track("Added to cart", ZRProperties::initWithAttributes({{"product", "Trail running SHOE"}, {"price", 119.95}}));
  track("Added to cart",
        ZRProperties::initWithAttributes({{"product", "Map"}, {"price", 9}, {"tags", Array{"hiking"}}}));
  track("Added to cart", nullptr);
  auto order = ZRProperties::initWithAttributes({{"member", true}});
  order->addDateISOStringAttributeWithName("2026-12-28T10:00:00Z", "delivery");
  track("Order placed", std::move(order));
  track("Order placed", ZRProperties::initWithAttributes({{"member", false}}));

  std::filesystem::remove_all(folder);
}
