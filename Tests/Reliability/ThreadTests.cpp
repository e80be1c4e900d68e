// Every public operation from eight threads at once, and the end of the process in the middle of it.
//
// ZR_STRESS_SECONDS, ZR_STRESS_SEED and ZR_EXIT_ROUNDS in the environment make the long form (scripts/torture-threads).

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Files/DefaultsStore.h"
#include "Reliability/Outside.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"
#include "ZRAnalytics/ZRAnalytics.h"

namespace zorvane::testing {
namespace {

constexpr int kThreads = 8;
constexpr int kCallsPerThread = 80;
constexpr double kYear = 365.25 * 86400;

unsigned numberFromEnvironment(const char* name, unsigned otherwise) {
  const char* const text = std::getenv(name);
  return text ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

using Random = std::mt19937;
using Operation = void (*)(ZRAnalytics&, Random&);

// What the operations below share. Never destroyed: threads outlive main.
struct Outside {
  std::shared_ptr<OutsideClock> clock = std::make_shared<OutsideClock>();
  std::shared_ptr<OutsideApplication> application = std::make_shared<OutsideApplication>();
  std::shared_ptr<OutsideDevice> device = std::make_shared<OutsideDevice>();
  std::shared_ptr<OutsideService> service;
  std::atomic<std::int64_t> lastNumber{0};
  std::atomic<std::int64_t> calls{0};
  std::mutex mutex;
  std::shared_ptr<OutsideDelegate> delegates[2];
};
Outside& outside() {
  static Outside& instance = *new Outside;
  return instance;
}

std::string anyOf(Random& random, std::initializer_list<const char*> texts) {
  return *(texts.begin() + random() % texts.size());
}

std::shared_ptr<ZRProperties> numbered(std::int64_t number) {
  return ZRProperties::initWithAttributes({{"n", number}, {"object", std::make_shared<OutsideObject>()}});
}

void checked(bool) {
  expectNoLockHeld("a completion");
}

// The old delegate goes while it may be called.
void changeDelegate(ZRAnalytics& facade, Random& random) {
  const unsigned which = random() % 2;
  std::shared_ptr<OutsideDelegate> delegate;
  if (random() % 4 != 0) {
    delegate = std::make_shared<OutsideDelegate>([&facade] {
      facade.syncNow();
      facade.setInappTriggerDelegate({});
    });
  }
  if (which == 0) {
    facade.setInappTriggerDelegate(delegate);
    (void)facade.inappTriggerDelegate();
  } else {
    facade.setMessagingTriggerDelegate(delegate);
    (void)facade.messagingTriggerDelegate();
  }
  std::lock_guard lock(outside().mutex);
  outside().delegates[which].swap(delegate);
}

const Operation kOperations[] = {
    // Often
    [](ZRAnalytics& f, Random&) { f.trackEventWithProperties("E", numbered(++outside().lastNumber)); },
    [](ZRAnalytics& f, Random&) { f.trackEventWithProperties("now", numbered(++outside().lastNumber)); },
    [](ZRAnalytics& f, Random&) { f.trackEventWithProperties("E", numbered(++outside().lastNumber)); },
    [](ZRAnalytics& f, Random&) {
      auto builder = ZRPayloadBuilder::initWithDictionary({{"n", ++outside().lastNumber}});
      builder->setTimeStampForKey(12, "t");
      f.trackEventBuilderPayload("E", builder);
    },
    [](ZRAnalytics& f, Random&) { f.flushWithCompletionBlock(checked); },
    [](ZRAnalytics& f, Random&) { f.syncNow(); },
    // The user
    [](ZRAnalytics& f, Random& r) {
      f.setUserAttributeForKey(anyOf(r, {"a", "b", "c"}), anyOf(r, {"x", "y"}));
    },
    [](ZRAnalytics& f, Random& r) {
      f.setUserAttributeForKey(anyOf(r, {"1", "2"}), "USER_ATTRIBUTE_UNIQUE_ID");
    },
    [](ZRAnalytics& f, Random&) { f.setUserAttributeForKey(std::make_shared<OutsideObject>(), "object"); },
    [](ZRAnalytics& f, Random&) { f.setUserAttributeTimestampForKey(1e9, "t"); },
    [](ZRAnalytics& f, Random&) { f.setUserAttributeDateForKey(Date{2e9}, "d"); },
    [](ZRAnalytics& f, Random&) { f.setUserAttributeISODateStringForKey("2026-11-21T10:00:00Z", "i"); },
    [](ZRAnalytics& f, Random&) { f.setUserAttributeLocationLatitudeLongitudeForKey(1, 2, "l"); },
    [](ZRAnalytics& f, Random& r) {
      f.setAlias(anyOf(r, {"1", "2"}));
    },
    [](ZRAnalytics& f, Random& r) { f.trackUserPushPreference(r() % 2 == 0); },
    [](ZRAnalytics& f, Random&) { f.resetUserWithCompletionBlock(checked); },
    [](ZRAnalytics& f, Random&) { f.resetUser(); },
    [](ZRAnalytics& f, Random&) { f.clearUserInfo(); },
    // Consent
    [](ZRAnalytics& f, Random& r) { f.optOutOfDataTracking(r() % 3 == 0); },
    [](ZRAnalytics& f, Random& r) { f.optOutOfIDFVTracking(r() % 2 == 0); },
    [](ZRAnalytics& f, Random& r) { f.optOutOfIDFATracking(r() % 2 == 0); },
    [](ZRAnalytics& f, Random& r) {
      f.updateOptOutEvents({anyOf(r, {"E", "F"}), 1});
    },
    [](ZRAnalytics& f, Random&) { f.setPushGDPROptOutStatusForKey(true, "ZORVANE_PUSH_OPTED_OUT"); },
    // Device and installation
    [](ZRAnalytics& f, Random& r) { f.appStatus(r() % 2); },
    [](ZRAnalytics& f, Random& r) { f.smartTriggerForAppStatus(r() % 2); },
    [](ZRAnalytics& f, Random&) { f.updateDeviceWithCompletion(checked); },
    [](ZRAnalytics& f, Random&) { f.setDeviceModelAttributes(); },
    [](ZRAnalytics& f, Random&) { f.trackAdvertisingIdentifier(); },
    [](ZRAnalytics& f, Random&) { (void)f.getTrackedIDFA(); },
    [](ZRAnalytics& f, Random&) { f.trackLocale(); },
    [](ZRAnalytics& f, Random&) { (void)f.getDeviceAddRequestBody(); },
    [](ZRAnalytics& f, Random&) { f.pushTokenUpdated(); },
    [](ZRAnalytics& f, Random&) { f.trackReinstall(); },
    [](ZRAnalytics& f, Random& r) {
      updateRemoteConfiguration({{"sdk_version", anyOf(r, {"1", "2"})}, {"app_version", anyOf(r, {"1", "2"})}});
      f.trackSDKVersion();
    },
    // Sending, links and sources
    [](ZRAnalytics& f, Random&) { f.disablePeriodicFlush(); },
    [](ZRAnalytics& f, Random& r) { f.setFlushInterval(6 + r() % 3); },
    [](ZRAnalytics& f, Random& r) { f.processURL(URL{"app://x?utm_source=" + std::to_string(r() % 4)}); },
    [](ZRAnalytics& f, Random& r) {
      f.updateSourcesForCurrentSession(ZRSourceArray{ZRSource::initSourceWithPushPayload(
          Dictionary{{"utm_source", std::to_string(r() % 4)}, {"utm_id", std::make_shared<OutsideObject>()}})});
    },
    [](ZRAnalytics& f, Random& r) { changeDelegate(f, r); },
    [](ZRAnalytics& f, Random& r) { changeDelegate(f, r); },
    // The core
    [](ZRAnalytics& f, Random& r) {
      setAppIdentifier(anyOf(r, {"APP", "OTHER"}));
      f.appIDChangeHandledWithCompletionBlock([] { checked(true); });
    },
    [](ZRAnalytics& f, Random& r) {
      setSDKEnabled(r() % 3 != 0);
      f.zorvaneSDKStateUpdated();
    },
    [](ZRAnalytics&, Random& r) {
      updateRemoteConfiguration({{"account_active", r() % 4 != 0}});
    },
    [](ZRAnalytics& f, Random&) { f.initializeAnalytics(); },
    [](ZRAnalytics& f, Random&) { f.updateModules(); },
    [](ZRAnalytics&, Random&) { ZREventsHandler::sharedInstance().clearEventsdata(); },
    [](ZRAnalytics&, Random&) { ZRUserAttributesHandler::sharedHandler().clearUserAttributesData(); },
    // The application's life, also by hand
    [](ZRAnalytics& f, Random&) { f.applicationIsActive(); },
    [](ZRAnalytics& f, Random&) { f.applicationIsInactive(); },
    [](ZRAnalytics& f, Random&) { f.applicationEnteredForeground(); },
    [](ZRAnalytics& f, Random&) { f.applicationEnteredBackground(); },
    [](ZRAnalytics& f, Random&) { f.initNewUser(); },
    [](ZRAnalytics& f, Random&) { f.sessionStarted(); },
    [](ZRAnalytics& f, Random&) { f.syncOnZrvAppExitWithApplication(*outside().application); },
    [](ZRAnalytics& f, Random&) { f.syncOnSessionTerminationWithApplication(*outside().application); },
    [](ZRAnalytics& f, Random&) { f.deviceUpdateOnSessionTerminationWithApplication(*outside().application); },
    [](ZRAnalytics& f, Random&) { f.endBGTaskWithIdentifier(f.reportsBGTask()); },
    [](ZRAnalytics&, Random& r) { outside().clock->setShift((static_cast<double>(r() % 41) - 20) * kYear); },
};

void callAtRandom(unsigned seed, int calls) {
  Random random(seed);
  for (int i = 0; i < calls; ++i) {
    // The first few, an application's bread and butter, half of the time.
    const std::size_t count = random() % 2 == 0 ? 6 : std::size(kOperations);
    kOperations[random() % count](ZRAnalytics::sharedInstance(), random);
    ++outside().calls;
  }
}

class ThreadTest : public ModuleTest {
 protected:
  void startOutside(unsigned seed) {
    Outside& world = outside();
    world.service = std::make_shared<OutsideService>(seed);
    platform::HostServices host;
    host.clock = world.clock;
    host.scheduler = scheduler_ = platform::makeThreadScheduler(world.clock);
    host.notificationCenter = center_;
    host.application = world.application;
    host.advertising = world.device;
    host.locale = world.device;
    host.timeZone = world.device;
    host.directories = {(directory_ / "Documents").string(), (directory_ / "Library").string(),
                        (directory_ / "Defaults").string()};
    ASSERT_TRUE(platform::configureHost(std::move(host)));
    ZRLogger::sharedInstance().setSink(std::make_shared<OutsideSink>());
    center_->setPostHook([](std::string_view) { expectNoLockHeld("a notification"); });
    platform::setSynchronizeHook([](const std::string&) { expectNoLockHeld("a store's hook"); });
    CoreSetup core;
    core.endpoint = "http://service.test";
    core.appId = "APP";
    core.remoteConfiguration = {{"event_batch_count", 20},
                                {"instant_flush_events", Array{"now"}},
                                {"periodic_flush_duration", 1},
                                {"source_extra_keys", Array{"utm_id"}},
                                {"user_attribute_caching_duration", 1},
                                {"idfv", "V"},
                                {"device_id_in_secure_store", true}};
    core.transport = world.service;
    core.willSendRequest = [](std::int64_t, const std::optional<std::string>&) {
      expectNoLockHeld("a request's hook");
    };
    core.didReceiveResponse = [](std::int64_t, const std::optional<std::string>&, bool) {
      expectNoLockHeld("a response's hook");
    };
    configureCore(std::move(core));
    ZRAnalytics::sharedInstance().initializeAnalytics();
  }

  // As the system posts them: on the main thread.
  void liveOn(Random& random) {
    static constexpr std::string_view kLife[] = {
        platform::kDidBecomeActiveNotification,     platform::kWillResignActiveNotification,
        platform::kWillEnterForegroundNotification, platform::kDidEnterBackgroundNotification,
        platform::kWillTerminateNotification,       "ZRVInitNewUser"};
    scheduler_->mainQueue().sync([&] {
      center_->post(kLife[random() % std::size(kLife)]);
      outside().application->expireOldest();
    });
  }

  // Whatever happened before, now everything is on and the service takes all it gets.
  void expectAllIsWell() {
    ZRAnalytics& facade = ZRAnalytics::sharedInstance();
    scheduler_->waitUntilIdle();
    outside().service->setRefuses(false);
    updateRemoteConfiguration({{"account_active", true}});
    setSDKEnabled(true);
    facade.optOutOfDataTracking(false);
    scheduler_->waitUntilIdle();
    const std::int64_t number = ++outside().lastNumber;
    facade.trackEventWithProperties("E", numbered(number));
    scheduler_->waitUntilIdle();
    std::atomic<int> answers{0};
    facade.flushWithCompletionBlock([&](bool success) { answers += success ? 1 : 100; });
    scheduler_->waitUntilIdle();
    EXPECT_EQ(answers, 1);
    EXPECT_TRUE(outside().service->accepted(number));
    EXPECT_FALSE(std::filesystem::exists(documents("ZorvaneBatchEvents.plist")));
    outside().service->setRefuses(true);
  }

  std::shared_ptr<platform::Scheduler> scheduler_;
  const unsigned seed_ = numberFromEnvironment("ZR_STRESS_SEED", 1);
};

TEST(LockCountTest, CountsWhatTheThreadHoldsWhereItCounts) {
  platform::Mutex outer;
  platform::Mutex inner;
  {
    platform::MutexLock first(outer);
    platform::MutexLock second(inner);
    EXPECT_EQ(platform::locksHeldByThread, platform::kLocksAreCounted ? 2 : 0);
    std::thread([] { EXPECT_EQ(platform::locksHeldByThread, 0); }).join();
  }
  EXPECT_EQ(platform::locksHeldByThread, 0);
}

TEST_F(ThreadTest, EveryOperationFromEightThreads) {
  startOutside(seed_);
  const auto end =
      std::chrono::steady_clock::now() + std::chrono::seconds(numberFromEnvironment("ZR_STRESS_SECONDS", 0));
  unsigned round = 0;
  do {
    SCOPED_TRACE("seed " + std::to_string(seed_) + ", round " + std::to_string(round));
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back(callAtRandom, seed_ + kThreads * round + thread, kCallsPerThread);
    }
    Random random(seed_ + round);
    for (int i = 0; i < kCallsPerThread / 4; ++i) liveOn(random);
    for (std::thread& thread : threads) thread.join();
    expectAllIsWell();
    ++round;
  } while (std::chrono::steady_clock::now() < end && !HasFailure());
  RecordProperty("rounds", static_cast<int>(round));
  std::printf("%u rounds, %lld calls\n", round, static_cast<long long>(outside().calls.load()));
}

// Each round is a launch over what the one before left.
TEST_F(ThreadTest, TheProcessMayEndAtAnyMoment) {
  const unsigned rounds = numberFromEnvironment("ZR_EXIT_ROUNDS", 30);
  for (unsigned round = 0; round < rounds; ++round) {
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      // Of the long form nobody waits for one round that hangs.
      if (std::getenv("ZR_EXIT_ROUNDS")) alarm(60);
      outside().lastNumber = std::int64_t{round} << 32;
      startOutside(seed_ + round);
      for (unsigned thread = 0; thread < kThreads; ++thread) {
        std::thread([seed = seed_ + kThreads * round + thread] { callAtRandom(seed, 1'000'000); }).detach();
      }
      Random random(seed_ + round);
      const std::int64_t calls = random() % 200;
      do liveOn(random);
      while (outside().calls < calls);
      std::exit(HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "seed " << seed_ << ", round " << round << ", status " << status;
  }
}

}  // namespace
}  // namespace zorvane::testing
