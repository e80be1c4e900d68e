#include "ZRAnalytics/EventManagement/ZRFlushTimer.h"

#include "Platform/HostServices.h"
#include "ZRAnalytics/EventManagement/ZREventsHandlerSupport.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreUtils.h"
#include "ZorvaneCore/ZorvaneCore.h"

namespace zorvane {

using eventshandler::kFile;

namespace {

platform::MainQueue& mainQueue() {
  return platform::hostServices().scheduler->mainQueue();
}

}  // namespace

void ZRFlushTimer::start() {
  guarded({kFile, "initiateTimer", 108}, "exception is %@", [this] {
    mainQueue().sync([this] {
      const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
      if (!store.isPeriodicFlushEnabled() || !ZRCoreUtils::isSDKEnabled()) {
        logLine("Flush Timer Disabled");
        return;
      }
      const std::int64_t interval = store.getPeriodicFlushDuration();
      if (interval < 1) return;
      timers_.push_back(mainQueue().startRepeatingTimer(static_cast<double>(interval), work_));
      logLine("Flush Timer Started");
    });
  });
}

void ZRFlushTimer::stop() {
  guarded({kFile, "stopPeriodicSyncTimer", 128}, "exception is %@", [this] {
    mainQueue().sync([this] {
      if (timers_.empty()) return;
      for (const platform::TimerId timer : timers_) mainQueue().cancelTimer(timer);
      timers_.clear();
      logLine("Flush Timer Stopped");
    });
  });
}

void ZRFlushTimer::disable() {
  guarded({kFile, "disablePeriodicFlush", 644}, "Exception : %@", [this] {
    // In one task, so that no start comes in between.
    mainQueue().sync([this] {
      stop();
      ZRSDKConfiguration configuration = ZorvaneCore::sharedInstance().getDefaultSDKConfiguration();
      configuration.setAnalyticsDisablePeriodicFlush(true);
      ZorvaneCore::sharedInstance().updateSDKConfigWithCompletionBlock(configuration, nullptr);
    });
  });
}

void ZRFlushTimer::setInterval(std::int64_t seconds) {
  guarded({kFile, "setFlushInterval", 664}, "Exception : %@", [this, seconds] {
    const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
    const std::int64_t minimum = store.getMinimumPeriodicFlushDurationLimit();
    // An interval equal to the minimum is refused too.
    if (minimum == 0 || seconds <= minimum || seconds == store.getPeriodicFlushDuration()) return;
    ZRSDKConfiguration configuration = ZorvaneCore::sharedInstance().getDefaultSDKConfiguration();
    configuration.setAnalyticsPeriodicFlushDuration(seconds);
    ZorvaneCore::sharedInstance().updateSDKConfigWithCompletionBlock(configuration, [this] {
      mainQueue().sync([this] {
        stop();
        start();
      });
    });
  });
}

}  // namespace zorvane
