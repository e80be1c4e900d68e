// A fixture for the facade: recorded and sent events as short texts, the order of log lines and notifications.
#pragma once

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Formats/JSON.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/EventManagement/EventPipelineTest.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/ZRCoreConstants.h"

namespace zorvane::testing {

// Numbers its background tasks from 1 and records the calls.
class FakeApplication final : public platform::Application {
 public:
  platform::ApplicationState state() const override { return platform::ApplicationState::Active; }
  platform::BackgroundTaskId beginBackgroundTask(std::string_view name,
                                                 std::function<void()> expirationHandler) override {
    if (!hasTasks) return platform::kNoBackgroundTask;
    expirations.push_back(std::move(expirationHandler));
    calls.push_back("begin " + std::string(name) + " " + std::to_string(expirations.size()));
    return expirations.size();
  }
  void endBackgroundTask(platform::BackgroundTaskId id) override { calls.push_back("end " + std::to_string(id)); }

  bool hasTasks = true;
  std::vector<std::string> calls;
  std::vector<std::function<void()>> expirations;
};

class FakeAdvertising final : public platform::AdvertisingService {
 public:
  bool isAvailable() const override { return isAvailable_; }
  std::optional<int> trackingAuthorizationStatus() const override { return status; }
  bool isAdvertisingTrackingEnabled() const override { return !isLimited; }
  std::optional<std::string> advertisingIdentifier() const override {
    if (throws) throw std::runtime_error("no service");
    return identifier;
  }
  bool isAvailable_ = true;
  std::optional<int> status = 3;  // authorized
  bool isLimited = false;
  std::optional<std::string> identifier = "IDFA-1";
  bool throws = false;
};

class UserTest : public EventPipelineTest {
 protected:
  static ZRAnalytics& facade() { return ZRAnalytics::sharedInstance(); }
  static ZRUserAttributesHandler& handler() { return ZRUserAttributesHandler::sharedHandler(); }
  // Nil without a session.
  static Value sessionID() {
    const auto session = ZRSessionManager::sharedSessionManager().getCurrentSessionInfoDict();
    return session ? session->objectForKey("session_id") : Value();
  }

  // "NAME {plain attributes} {date and location attributes} silent"; parts that the event lacks are left out.
  static std::string textOf(const Dictionary& event) {
    std::string text = event.objectForKey("EVENT_ACTION").description();
    for (const char* key : {"EVENT_ATTRS", "EVENT_ATTRS_CUST"}) {
      if (event.contains(key)) text += " " + platform::jsonText(event.objectForKey(key));
    }
    return event.contains("N_I_E") ? text + " silent" : text;
  }
  // Runs all tasks, then empties the current batch and returns its events.
  Names recorded() {
    settle();
    Names texts;
    for (const Value& event : events().viewsInfoArray().value_or(Array())) {
      texts.push_back(textOf(*event.asDictionary()));
    }
    events().clearEventsdata();
    return texts;
  }
  Names reported() const {
    Names texts;
    for (const Dictionary& event : reportedEvents()) texts.push_back(textOf(event));
    return texts;
  }
  std::vector<FakeService::Request> deviceRequests() const {
    auto requests = service_->requests();
    requests.erase(
        std::remove_if(requests.begin(), requests.end(),
                       [](const auto& request) { return request.url.find("/v1/device/") == std::string::npos; }),
        requests.end());
    return requests;
  }
  // The bytes of the SDK's defaults as they are on the disk.
  std::string defaultsFile() const { return readAll((directory_ / "Defaults/sdk.plist").string()); }
  static Value kept(std::string_view key) { return ZRCoreUtils::getSDKUserDefault().objectForKey(key); }
  static std::string userAttribute(const std::string& attributes) {
    return "EVENT_ACTION_USER_ATTRIBUTE " + attributes;
  }
  static Value uniqueID() {
    return handler().getIdentifierDictionary().value_or(Dictionary()).objectForKey("zrv_user_id");
  }
  std::string cacheFile() const { return library("ZrvData/ZRUserAttributes"); }

  // Appends each log line and notification to order_ from now on.
  void recordOrder() {
    log_->onMessage = [this](const std::string& message) { order_.push_back(message); };
    center_->setPostHook([this](std::string_view name) { order_.emplace_back(name); });
  }
  // The index of the text in order_; its size when the text is missing.
  std::size_t placeOf(const std::string& text) const {
    return static_cast<std::size_t>(std::find(order_.begin(), order_.end(), text) - order_.begin());
  }
  // Whether order_ holds the texts in this order.
  bool cameInOrder(const Names& texts) const {
    auto from = order_.begin();
    for (const std::string& text : texts) {
      from = std::find(from, order_.end(), text);
      if (from == order_.end()) {
        ADD_FAILURE() << "missing, or in another place: " << text;
        return false;
      }
      ++from;
    }
    return true;
  }
  bool reportedError(const std::string& file, const std::string& operation, const std::string& message) const {
    const auto errors = log_->errors();
    return std::any_of(errors.begin(), errors.end(), [&](const auto& error) {
      return error.file == file && error.operation == operation && error.message == message && error.line > 0;
    });
  }

  Names order_;
};

}  // namespace zorvane::testing
