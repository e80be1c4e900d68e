// Fakes of all that the module calls: the host's services, the network, trigger delegates. Each fails the test when it
// is called under a lock. Some call back, throw, or complete on the caller's thread. All are thread-safe.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Formats/JSON.h"
#include "Support/ModuleTest.h"
#include "ZorvaneCore/ZREventTriggerDelegate.h"

namespace zorvane::testing {

// Which parts of the host throw when the module calls them, and how often they did.
inline std::function<bool(std::string_view what)> hostThrows = [](std::string_view) { return false; };
inline std::atomic<std::size_t> hostExceptions{0};

inline void hostIsAsked(std::string_view what) {
  expectNoLockHeld(what.data());
  if (!hostThrows(what)) return;
  ++hostExceptions;
  throw std::runtime_error("on purpose");
}

// The host's services: the system's clock with a wall clock that can be moved, and a device that changes.
class HostFakes final : public platform::Clock,
                        public platform::Application,
                        public platform::AdvertisingService,
                        public platform::LocaleService,
                        public platform::TimeZone {
 public:
  Date now() const override {
    hostIsAsked("the clock");
    return {system_.now().secondsSince1970 + shift_};
  }
  double monotonicSeconds() const override {
    hostIsAsked("the clock");
    return system_.monotonicSeconds();
  }
  bool runsByItself() const override {
    hostIsAsked("the clock");
    return true;
  }
  void setShift(double seconds) { shift_ = seconds; }

  platform::ApplicationState state() const override {
    return static_cast<platform::ApplicationState>(asked("the application", 3));
  }
  platform::BackgroundTaskId beginBackgroundTask(std::string_view, std::function<void()> expirationHandler) override {
    hostIsAsked("the application");
    std::lock_guard lock(mutex_);
    expirations_[++lastTask_] = std::move(expirationHandler);
    return lastTask_;
  }
  void endBackgroundTask(platform::BackgroundTaskId id) override {
    hostIsAsked("the application");
    std::function<void()> ended;
    std::lock_guard lock(mutex_);
    std::swap(ended, expirations_[id]);
    expirations_.erase(id);
  }
  // Lets the oldest task expire, as a system does on the main thread.
  void expireOldest() {
    std::function<void()> expiration;
    {
      std::lock_guard lock(mutex_);
      if (!expirations_.empty()) expiration = expirations_.begin()->second;
    }
    if (expiration) expiration();
  }

  std::optional<int> trackingAuthorizationStatus() const override { return 3 + asked("the advertising service", 1); }
  std::optional<std::string> advertisingIdentifier() const override { return next("the advertising service", "IDFA-"); }
  std::optional<std::string> localeIdentifier() const override { return next("the locale", "de_"); }
  std::optional<std::string> countryCode() const override { return next("the locale", "C"); }
  std::optional<std::string> languageCode() const override { return next("the locale", "l"); }
  std::int64_t secondsFromGMT(Date) const override { return 3600 * asked("the time zone", 2); }

 private:
  int asked(const char* what, unsigned results) const {
    hostIsAsked(what);
    return static_cast<int>(asked_++ % results);
  }
  std::string next(const char* what, const char* prefix) const { return prefix + std::to_string(asked(what, 5)); }

  platform::SystemClock system_;
  std::atomic<double> shift_{0};
  mutable std::atomic<unsigned> asked_{0};
  std::mutex mutex_;
  platform::BackgroundTaskId lastTask_ = platform::kNoBackgroundTask;
  std::map<platform::BackgroundTaskId, std::function<void()>> expirations_;
};

// A host's object among the values of an event.
class HostObject final : public platform::Object {
 public:
  std::string description() const override {
    hostIsAsked("an object's description");
    return "object";
  }
  Value plainValue() const override {
    hostIsAsked("an object's plain value");
    return "plain";
  }
  ~HostObject() override { expectNoLockHeld("an object's destructor"); }
};

// Accepts, refuses and fails at random, on the caller's thread or on a queue.
class HostService final : public NetworkTransport {
 public:
  explicit HostService(unsigned seed) : random_(seed) {}

  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override {
    hostIsAsked("the transport");
    std::string text;
    try {
      text = request.makeBody();
    } catch (const std::exception& error) {  // its events were cleared
      return completion({0, "", error.what()});
    }
    const auto body = platform::parseJSON(text);
    EXPECT_TRUE(body);
    TransportResponse response{200, "", ""};
    unsigned way = 0;
    {
      std::lock_guard lock(mutex_);
      way = static_cast<unsigned>(random_()) % 3;
      if (refuses_ && random_() % 3 == 0) response.status = random_() % 2 == 0 ? 503 : 0;
      if (response.status == 200 && body) note(*body.value().asDictionary());
    }
    if (way == 0) return completion(response);
    platform::hostServices()
        .scheduler->globalQueue(way == 1 ? platform::Priority::Default : platform::Priority::Background)
        .async([completion = std::move(completion), response] { completion(response); });
  }
  void setRefuses(bool refuses) {
    std::lock_guard lock(mutex_);
    refuses_ = refuses;
  }
  bool accepted(std::int64_t number) const {
    std::lock_guard lock(mutex_);
    return batchOfEvent_.contains(number);
  }

 private:
  // An event, known by its attribute "n", is in the same batch whenever it is sent.
  void note(const Dictionary& body) {
    const Value events = body.objectForKey("viewsInfo");
    if (!events.isArray()) return;
    const std::string bid = body.objectForKey("meta").asDictionary()->objectForKey("bid").description();
    for (const Value& event : *events.asArray()) {
      const Value attributes = event.asDictionary()->objectForKey("EVENT_ATTRS");
      if (!attributes.isDictionary() || !attributes.asDictionary()->contains("n")) continue;
      const std::int64_t number = attributes.asDictionary()->objectForKey("n").integerValue();
      const auto [known, isNew] = batchOfEvent_.emplace(number, bid);
      EXPECT_TRUE(isNew || known->second == bid) << "event " << number << " stands in two batches";
    }
  }

  mutable std::mutex mutex_;
  std::mt19937 random_;
  bool refuses_ = true;
  std::map<std::int64_t, std::string> batchOfEvent_;
};

// Changes each event it is shown. Of eight calls one calls back and one throws.
class HostDelegate final : public ZREventTriggerDelegate {
 public:
  explicit HostDelegate(std::function<void()> callBack) : callBack_(std::move(callBack)) {}
  ~HostDelegate() override { expectNoLockHeld("a delegate's destructor"); }
  void eventTrackedWithNameAndEventAttr(const Value&, Dictionary& event) override {
    hostIsAsked("a delegate");
    event.set("seen", true);
    const unsigned call = calls_++;
    if (call % 8 == 3) callBack_();
    if (call % 8 != 7) return;
    ++hostExceptions;
    throw std::runtime_error("on purpose");
  }

 private:
  const std::function<void()> callBack_;
  std::atomic<unsigned> calls_{0};
};

}  // namespace zorvane::testing
