#include "ZRAnalytics/ZRHosting.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "Platform/Files/DefaultsStore.h"
#include "Platform/Time/Deadline.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/RemoteConfiguration.h"
#include "ZorvaneCore/ZRAppDelegateSwizzler.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZRHosting";
constexpr char kException[] = "exception is %@";

using platform::Deadline;

// Forwards to the host's transport and counts what it has not answered. Passes on the first answer to a request only.
class CountingTransport final : public NetworkTransport {
 public:
  explicit CountingTransport(std::shared_ptr<NetworkTransport> transport) : transport_(std::move(transport)) {}

  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override {
    {
      platform::MutexLock lock(mutex_);
      ++started_;
    }
    const auto isAnswered = std::make_shared<std::atomic<bool>>(false);
    try {
      transport_->send(std::move(request),
                       [this, isAnswered, completion = std::move(completion)](const TransportResponse& response) {
                         if (isAnswered->exchange(true)) return;
                         completion(response);
                         countAnswer();
                       });
    } catch (...) {
      if (!isAnswered->exchange(true)) countAnswer();
      throw;
    }
  }

  std::uint64_t started() const {
    platform::MutexLock lock(mutex_);
    return started_;
  }
  // Waits until every request is answered. False if some are not after that many seconds.
  bool waitUntilAnswered(double seconds) {
    platform::MutexLock lock(mutex_);
    if (answered_ != started_) changed_.waitFor(mutex_, seconds);
    return answered_ == started_;
  }

 private:
  void countAnswer() {
    platform::MutexLock lock(mutex_);
    ++answered_;
    changed_.notifyAll();
  }

  const std::shared_ptr<NetworkTransport> transport_;
  mutable platform::Mutex mutex_;
  platform::Condition changed_;
  std::uint64_t started_ ZR_GUARDED_BY(mutex_) = 0;
  std::uint64_t answered_ ZR_GUARDED_BY(mutex_) = 0;
};

// Null before the start, and if the host gave no transport. Never destroyed.
const std::shared_ptr<CountingTransport>* transportInUse = nullptr;

void post(std::string_view notification) {
  platform::hostServices().notificationCenter->post(notification);
}

bool isApplicationActive() {
  return platform::hostServices().application->state() == platform::ApplicationState::Active;
}

bool isDeviceRegistered() {
  const platform::DefaultsStore& defaults = ZRCoreUtils::getSDKUserDefault();
  return !defaults.objectForKey(kUserDefaultsKeyHasDeviceAddFailed).isNil() &&
         !defaults.boolForKey(kUserDefaultsKeyHasDeviceAddFailed);
}

void startOnMainThread(std::int64_t appStatus) {
  ZRAnalytics& analytics = ZRAnalytics::sharedInstance();
  analytics.initializeAnalytics();
  analytics.trackSDKVersion();
  analytics.appStatus(appStatus);
  if (!isDeviceRegistered()) {
    analytics.updateDeviceWithCompletion(nullptr);
    if (!ZRCoreUtils::getDeviceModel().empty()) analytics.setDeviceModelAttributes();
  }
  analytics.trackLocale();
  if (isApplicationActive()) post(platform::kDidBecomeActiveNotification);
}

// Waits until the queues are idle, the requests are answered, and what the answers posted is done.
bool settle(const Deadline& deadline) {
  platform::Scheduler& scheduler = *platform::hostServices().scheduler;
  // Waits for answers are short: on the main thread, they hold up the tasks of the main queue.
  constexpr double kLongestWaitForAnswers = 0.05;
  for (;;) {
    const std::uint64_t before = transportInUse ? (*transportInUse)->started() : 0;
    const bool answered =
        !transportInUse ||
        (*transportInUse)->waitUntilAnswered(std::min(deadline.secondsLeft(), kLongestWaitForAnswers));
    if (!scheduler.waitUntilIdle(deadline.secondsLeft())) return false;
    if (answered && (!transportInUse || (*transportInUse)->started() == before)) return true;
    if (deadline.secondsLeft() == 0) return false;
  }
}

// False if something is left to be sent.
bool sendAll(double seconds) {
  const Deadline deadline(seconds);
  // A registration that is not answered counts as failed: leaving the foreground would repeat it.
  settle(Deadline(seconds / 2));
  platform::hostServices().scheduler->mainQueue().runOrPost([] {
    if (!isApplicationActive()) return;
    post(platform::kWillResignActiveNotification);
    post(platform::kWillTerminateNotification);
  });
  bool settled = settle(deadline);
  ZREventsHandler& events = ZREventsHandler::sharedInstance();
  events.saveCurrentBatch();
  const auto allSent = [&events] {
    const auto batches = events.getBatches();
    const auto unsaved = events.viewsInfoArray();
    return batches && batches->empty() && (!unsaved || unsaved->empty());
  };
  if (!allSent()) {
    // Saved since the last sync began, or refused.
    ZRAnalytics::sharedInstance().syncNow();
    settled = settle(deadline);
  }
  return settled && allSent() && isDeviceRegistered();
}

}  // namespace

platform::Status startAnalytics(ZRStartOptions options) {
  ZRLogger::sharedInstance().setSink(std::move(options.log));
  try {
    RemoteConfiguration().apply(options.core.remoteConfiguration);
  } catch (const ValueError& error) {
    return platform::Error{error.what()};
  }
  if (!platform::configureHost(std::move(options.host))) return platform::Error{"the host services are in use already"};
  if (options.core.transport) {
    const auto* const transport =
        new std::shared_ptr<CountingTransport>(std::make_shared<CountingTransport>(std::move(options.core.transport)));
    options.core.transport = *transport;
    transportInUse = transport;
  }
  configureCore(std::move(options.core));
  bool isStarted = false;
  const auto start = [&] {
    isStarted = guarded({kFile, "startAnalytics"}, kException, [&] { startOnMainThread(options.appStatus); });
  };
  // The main queue calls the host's loop, too.
  guarded({kFile, "startAnalytics"}, kException, [&] { platform::hostServices().scheduler->mainQueue().sync(start); });
  if (!isStarted) return platform::Error{"the start was not completed"};
  return platform::Done{};
}

void openURL(std::optional<URL> url) {
  const platform::HostServices& services = platform::hostServices();
  services.scheduler->mainQueue().runOrPost([&application = *services.application, url = std::move(url)] {
    ZRAppDelegateSwizzler::forEachInterceptor(
        [&](UIApplicationDelegate& interceptor) { interceptor.applicationOpenURLOptions(application, url, {}); });
    ZRAnalytics::sharedInstance().processURL(url);
  });
}

bool endAnalytics(double seconds) {
  bool isAllSent = false;
  guarded({kFile, "endAnalytics"}, kException, [&] { isAllSent = sendAll(seconds); });
  return isAllSent;
}

}  // namespace zorvane
