// Every public operation from eight threads at once, over a host that throws, and the end of the process while they
// run.
//
// scripts/torture sets ZR_STRESS_SECONDS, ZR_STRESS_SEED and ZR_EXIT_ROUNDS for the long form.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Files/DefaultsStore.h"
#include "Reliability/HostFakes.h"
#include "ZRAnalytics/DeviceAttribute/ZRDeviceAttributesHandler.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Journal/ZRJournal.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
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

// Shared by the operations below. Never destroyed, because threads outlive main.
struct Shared {
  std::shared_ptr<HostFakes> host = std::make_shared<HostFakes>();
  std::shared_ptr<HostService> service;
  std::atomic<std::int64_t> lastNumber{0};
  std::atomic<std::int64_t> calls{0};
  int completedEvents = 0;
  std::mutex mutex;
  std::shared_ptr<HostDelegate> delegates[2];
};
Shared& shared() {
  static Shared& instance = *new Shared;
  return instance;
}

template <typename... Texts>
std::string oneOf(Random& random, Texts... texts) {
  const char* const all[] = {texts...};
  return all[random() % sizeof...(texts)];
}

std::shared_ptr<ZRProperties> numbered(std::int64_t number) {
  return ZRProperties::initWithAttributes({{"n", number}, {"object", std::make_shared<HostObject>()}});
}

void checked(bool) {
  hostIsAsked("a completion");
}

// Destroys the old delegate, perhaps while it is being called.
void changeDelegate(ZRAnalytics& facade, Random& random) {
  const unsigned which = random() % 2;
  std::shared_ptr<HostDelegate> delegate;
  if (random() % 4 != 0) {
    delegate = std::make_shared<HostDelegate>([&facade] {
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
  std::lock_guard lock(shared().mutex);
  shared().delegates[which].swap(delegate);
}

const Operation kOperations[] = {
    // Most frequent
    [](ZRAnalytics& f, Random&) { f.trackEventWithProperties("E", numbered(++shared().lastNumber)); },
    [](ZRAnalytics& f, Random&) { f.trackEventWithProperties("now", numbered(++shared().lastNumber)); },
    [](ZRAnalytics& f, Random&) { f.trackEventWithProperties("E", numbered(++shared().lastNumber)); },
    [](ZRAnalytics& f, Random&) {
      auto builder = ZRPayloadBuilder::initWithDictionary({{"n", ++shared().lastNumber}});
      builder->setTimeStampForKey(12, "t");
      f.trackEventBuilderPayload("E", builder);
    },
    [](ZRAnalytics& f, Random&) { f.flushWithCompletionBlock(checked); },
    [](ZRAnalytics& f, Random&) { f.syncNow(); },
    // The user
    [](ZRAnalytics& f, Random& r) { f.setUserAttributeForKey(oneOf(r, "a", "b", "c"), oneOf(r, "x", "y")); },
    [](ZRAnalytics& f, Random& r) { f.setUserAttributeForKey(oneOf(r, "1", "2"), "USER_ATTRIBUTE_UNIQUE_ID"); },
    [](ZRAnalytics& f, Random&) { f.setUserAttributeForKey(std::make_shared<HostObject>(), "object"); },
    [](ZRAnalytics& f, Random&) { f.setUserAttributeTimestampForKey(1e9, "t"); },
    [](ZRAnalytics& f, Random&) { f.setUserAttributeDateForKey(Date{2e9}, "d"); },
    [](ZRAnalytics& f, Random&) { f.setUserAttributeISODateStringForKey("2026-11-21T10:00:00Z", "i"); },
    [](ZRAnalytics& f, Random&) { f.setUserAttributeLocationLatitudeLongitudeForKey(1, 2, "l"); },
    [](ZRAnalytics& f, Random& r) { f.setAlias(oneOf(r, "1", "2")); },
    [](ZRAnalytics& f, Random& r) { f.trackUserPushPreference(r() % 2 == 0); },
    [](ZRAnalytics& f, Random&) { f.resetUserWithCompletionBlock(checked); },
    [](ZRAnalytics& f, Random&) { f.resetUser(); },
    [](ZRAnalytics& f, Random&) { f.clearUserInfo(); },
    // Consent
    [](ZRAnalytics& f, Random& r) { f.optOutOfDataTracking(r() % 3 == 0); },
    [](ZRAnalytics& f, Random& r) { f.optOutOfIDFVTracking(r() % 2 == 0); },
    [](ZRAnalytics& f, Random& r) { f.optOutOfIDFATracking(r() % 2 == 0); },
    [](ZRAnalytics& f, Random& r) {
      f.updateOptOutEvents({oneOf(r, "E", "F"), 1});
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
      updateRemoteConfiguration({{"sdk_version", oneOf(r, "1", "2")}, {"app_version", oneOf(r, "1", "2")}});
      f.trackSDKVersion();
    },
    // Sending, links and sources
    [](ZRAnalytics& f, Random&) { f.disablePeriodicFlush(); },
    [](ZRAnalytics& f, Random& r) { f.setFlushInterval(6 + r() % 3); },
    [](ZRAnalytics& f, Random& r) { f.processURL(URL{"app://x?utm_source=" + std::to_string(r() % 4)}); },
    [](ZRAnalytics& f, Random& r) {
      f.updateSourcesForCurrentSession(ZRSourceArray{ZRSource::initSourceWithPushPayload(
          Dictionary{{"utm_source", std::to_string(r() % 4)}, {"utm_id", std::make_shared<HostObject>()}})});
    },
    [](ZRAnalytics& f, Random& r) { changeDelegate(f, r); },
    [](ZRAnalytics& f, Random& r) { changeDelegate(f, r); },
    // The core
    [](ZRAnalytics& f, Random& r) {
      setAppIdentifier(oneOf(r, "APP", "OTHER"));
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
    // Lifecycle
    [](ZRAnalytics& f, Random&) { f.applicationIsActive(); },
    [](ZRAnalytics& f, Random&) { f.applicationIsInactive(); },
    [](ZRAnalytics& f, Random&) { f.applicationEnteredForeground(); },
    [](ZRAnalytics& f, Random&) { f.applicationEnteredBackground(); },
    [](ZRAnalytics& f, Random&) { f.initNewUser(); },
    [](ZRAnalytics& f, Random&) { f.sessionStarted(); },
    [](ZRAnalytics& f, Random&) { f.syncOnZrvAppExitWithApplication(*shared().host); },
    [](ZRAnalytics& f, Random&) { f.syncOnSessionTerminationWithApplication(*shared().host); },
    [](ZRAnalytics& f, Random&) { f.deviceUpdateOnSessionTerminationWithApplication(*shared().host); },
    [](ZRAnalytics& f, Random&) { f.endBGTaskWithIdentifier(f.reportsBGTask()); },
    [](ZRAnalytics&, Random& r) { shared().host->setShift((static_cast<double>(r() % 41) - 20) * kYear); },
};

// The other classes' operations that reach the host. A host's object stands wherever any value may.
const Value kObject = std::make_shared<HostObject>();
constexpr auto& events = ZREventsHandler::sharedInstance;
constexpr auto& sessions = ZRSessionManager::sharedSessionManager;
constexpr auto& attributes = ZRUserAttributesHandler::sharedHandler;

const Operation kOtherOperations[] = {
    [](auto&, auto&) {
      events().trackEventWithPropertiesWithCompletionBlock("E", nullptr, [] { ++shared().completedEvents; });
    },
    [](auto&, auto&) { events().getEventDictForEventAndProperties(kObject, nullptr); },
    [](auto&, auto&) { events().saveCurrentBatch(); },
    [](auto&, auto&) { events().writeEventsToFileWithBatchID(Array{kObject}, kObject); },
    [](auto&, auto&) {
      std::ofstream(events().oldDatFilePath()) << "{\"EVENT_ACTION\":\"dumped\"}\n";
      events().syncToServerFromDumpFile();
    },
    [](auto&, auto&) { events().flushWithCompletionBlock([](bool, bool) { checked(true); }); },
    [](auto&, auto&) {
      events().flushEventsInBackgroundAndResetWithCompletionBlock(true, true, [](bool, bool) { checked(true); });
    },
    [](auto&, auto&) {
      sessions().setIsAppInBackground(true);
      sessions().checkSessionForEventWithPropertiesWithCompletionBlock("E", nullptr, nullptr);
      sessions().checkSessionForEventWithPropertiesWithCompletionBlock("E", nullptr, [] { checked(true); });
      sessions().applicationEnteredForeground();
    },
    [](auto&, auto&) {
      sessions().initiateNewSessionWithSourcesAndCompletionBlock(std::nullopt, [](const auto&) { checked(true); });
    },
    [](auto&, auto&) { sessions().appOpenedWithSourceArray({}); },
    [](auto&, auto&) {
      sessions().updateSourcesForCurrentSession(ZRSourceArray{ZRSource::initSourceWithURL(kObject)});
    },
    [](auto&, auto&) { sessions().reinitiateSession(); },
    [](auto&, auto&) { sessions().hasCurrentSessionExpired(); },
    [](auto&, auto&) { sessions().isAppInBackgroundState(); },
    [](auto&, auto&) { sessions().applicationInActive(); },
    [](auto&, auto&) { attributes().setUserAttributeUniqueID(kObject); },
    [](auto&, auto&) { attributes().forceResetUserWithNewUserAttributeUniqueID("forced"); },
    [](auto&, auto&) { attributes().setUserAttributeValueWithNameCheckStorage(1, kObject, true); },
    [](auto&, auto&) { attributes().setUserAttributeTimestampForKey(1, kObject); },
    [](auto&, auto&) { ZRDeviceAttributesHandler::sharedInstance().setDeviceAttributeForKey(1, kObject); },
    [](auto&, auto&) { ZRAnalyticsUtils::createBatchIdentifier(); },
    [](auto&, auto&) { ZRAnalyticsUtils::advertiserID(); },
};

// Whether the report names a line of its file where reports are made, or a number that is fixed.
bool namesItsPlace(const LogRecorder::ErrorRecord& error) {
  constexpr std::int64_t kFixed[] = {65,  76,  84,  89,  90,  98,  108, 113, 116, 128, 129, 138, 146,
                                     169, 181, 184, 190, 325, 411, 525, 538, 572, 644, 664, 708};
  if (std::find(std::begin(kFixed), std::end(kFixed), error.line) != std::end(kFixed)) return true;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(ZR_SOURCE_DIR "/ZRAnalytics")) {
    if (entry.path().filename() != error.file + ".cpp") continue;
    std::ifstream source(entry.path());
    std::string line;
    for (std::int64_t i = 0; i < error.line; ++i) std::getline(source, line);
    return line.find("{kFile, ") != std::string::npos;
  }
  return false;
}

void callAtRandom(unsigned seed, int calls) {
  Random random(seed);
  for (int i = 0; i < calls; ++i) {
    // Every other call is one of the most frequent.
    const std::size_t count = random() % 2 == 0 ? 6 : std::size(kOperations);
    kOperations[random() % count](ZRAnalytics::sharedInstance(), random);
    ++shared().calls;
  }
}

class ThreadTest : public ModuleTest {
 protected:
  void startModule(unsigned seed, bool keepsJournal = false) {
    if (keepsJournal) core_.journal = makeEventJournal({.bytes = 256u << 10});
    shared().service = std::make_shared<HostService>(seed);
    host_.clock = shared().host;
    if (!host_.scheduler) host_.scheduler = platform::makeThreadScheduler(shared().host);
    host_.application = shared().host;
    host_.advertising = shared().host;
    host_.locale = shared().host;
    host_.timeZone = shared().host;
    center_->setPostHook([](std::string_view) { expectNoLockHeld("a notification"); });
    platform::setSynchronizeHook([](const std::string&) { expectNoLockHeld("a store's hook"); });
    core_.transport = shared().service;
    core_.willSendRequest = [](std::int64_t, const auto&) { expectNoLockHeld("a request's hook"); };
    core_.didReceiveResponse = [](std::int64_t, const auto&, bool) { expectNoLockHeld("a response's hook"); };
    start({{"event_batch_count", 20},
           {"instant_flush_events", Array{"now"}},
           {"periodic_flush_duration", 1},
           {"source_extra_keys", Array{"utm_id"}},
           {"user_attribute_caching_duration", 1},
           {"idfv", "V"},
           {"device_id_in_secure_store", true}});
    ZRAnalytics::sharedInstance().initializeAnalytics();
  }
  void waitUntilIdle() const { host_.scheduler->waitUntilIdle(); }

  // Posts a lifecycle notification on the main thread, as a system does.
  void postLifecycleNotification(Random& random) {
    static constexpr std::string_view kNotifications[] = {
        platform::kDidBecomeActiveNotification,     platform::kWillResignActiveNotification,
        platform::kWillEnterForegroundNotification, platform::kDidEnterBackgroundNotification,
        platform::kWillTerminateNotification,       "ZRVInitNewUser"};
    host_.scheduler->mainQueue().sync([&] {
      center_->post(kNotifications[random() % std::size(kNotifications)]);
      shared().host->expireOldest();
    });
  }

  // With all gates open and a service that accepts everything, one flush delivers all that is left.
  void expectAFlushDeliversEverything() {
    ZRAnalytics& facade = ZRAnalytics::sharedInstance();
    ZREventsHandler::sharedInstance().stopPeriodicSyncTimer();  // its flush would turn this one away
    waitUntilIdle();
    shared().service->setRefuses(false);
    updateRemoteConfiguration({{"account_active", true}});
    setSDKEnabled(true);
    facade.optOutOfDataTracking(false);
    waitUntilIdle();
    const std::int64_t number = ++shared().lastNumber;
    facade.trackEventWithProperties("E", numbered(number));
    waitUntilIdle();
    std::atomic<int> completions{0};
    facade.flushWithCompletionBlock([&](bool success) { completions += success ? 1 : 100; });
    waitUntilIdle();
    EXPECT_EQ(completions, 1);
    EXPECT_TRUE(shared().service->accepted(number));
    EXPECT_FALSE(std::filesystem::exists(documents("ZorvaneBatchEvents.plist")));
    for (const auto& error : log_->errors()) {
      EXPECT_EQ(error.message, "exception is on purpose") << error.file << ' ' << error.line << ' ' << error.operation;
    }
    log_->clear();
    shared().service->setRefuses(true);
  }

  const unsigned seed_ = numberFromEnvironment("ZR_STRESS_SEED", 1);
};

TEST(LockCountTest, CountsTheLocksOfTheCallingThread) {
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

TEST_F(ThreadTest, NoEventIsLostBetweenSavesFlushesAndRefusals) {
  startModule(seed_);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      ZRAnalytics& facade = ZRAnalytics::sharedInstance();
      for (int i = 0; i < 250; ++i) {
        facade.trackEventWithProperties(i % 50 == 49 ? "now" : "E", numbered(++shared().lastNumber));
        if (i % 16 == thread) facade.syncNow();
        if (i % 16 == thread + 8) ZREventsHandler::sharedInstance().saveCurrentBatch();
        if (i % 64 == thread) facade.processURL(URL{"app://x?utm_source=" + std::to_string(thread)});
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  expectAFlushDeliversEverything();
  for (std::int64_t number = 1; number <= shared().lastNumber; ++number) {
    EXPECT_TRUE(shared().service->accepted(number)) << number;
  }
}

TEST_F(ThreadTest, ExceptionOfTheHostCostsOneCallAndIsReportedOnce) {
  host_.scheduler = scheduler_;
  startModule(seed_);
  waitUntilIdle();
  scheduler_->setUncaughtHandler([](std::exception_ptr) { ADD_FAILURE() << "an exception left the module"; });
  Random random(seed_);
  std::vector<Operation> operations(std::begin(kOperations), std::end(kOperations));
  operations.insert(operations.end(), std::begin(kOtherOperations), std::end(kOtherOperations));
  for (std::size_t i = 0; i < operations.size(); ++i) {
    for (const bool servicesThrow : {true, false}) {
      SCOPED_TRACE("operation " + std::to_string(i) + (servicesThrow ? ", all throws" : ", callbacks throw"));
      ZRAnalytics::sharedInstance().trackEventWithProperties("E", numbered(++shared().lastNumber));
      waitUntilIdle();
      log_->clear();
      hostExceptions = 0;
      hostThrows = [servicesThrow](std::string_view what) { return servicesThrow || what[0] == 'a'; };
      EXPECT_NO_THROW(operations[i](ZRAnalytics::sharedInstance(), random));
      waitUntilIdle();
      shared().host->expireOldest();
      hostThrows = [](std::string_view) { return false; };
      EXPECT_EQ(log_->errors().size(), hostExceptions);
      for (const auto& error : log_->errors()) {
        EXPECT_TRUE(namesItsPlace(error)) << error.file << ' ' << error.line << ' ' << error.operation;
      }
      log_->clear();
      expectAFlushDeliversEverything();
    }
  }
  EXPECT_EQ(shared().completedEvents, 2) << "a lost event and a recorded one";
}

class OperationTest : public ThreadTest, public ::testing::WithParamInterface<bool> {};

TEST_P(OperationTest, EveryOperationFromEightThreads) {
  startModule(seed_, GetParam());
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
    for (int i = 0; i < kCallsPerThread / 4; ++i) postLifecycleNotification(random);
    for (std::thread& thread : threads) thread.join();
    expectAFlushDeliversEverything();
    ++round;
  } while (std::chrono::steady_clock::now() < end && !HasFailure());
  std::printf("%u rounds, %lld calls\n", round, static_cast<long long>(shared().calls.load()));
}

INSTANTIATE_TEST_SUITE_P(ThreadTest, OperationTest, ::testing::Bool(),
                         [](const auto& kind) { return kind.param ? "WithAJournal" : "WithoutAJournal"; });

// Each round is a launch over the files of the round before.
TEST_F(ThreadTest, TheProcessMayEndAtAnyMoment) {
  const unsigned rounds = numberFromEnvironment("ZR_EXIT_ROUNDS", 30);
  for (unsigned round = 0; round < rounds && !HasFailure(); ++round) {
    SCOPED_TRACE("seed " + std::to_string(seed_) + ", round " + std::to_string(round));
    inEarlierLaunch([&] {
      if (std::getenv("ZR_EXIT_ROUNDS")) alarm(60);  // so that a hang ends the long form
      shared().lastNumber = std::int64_t{round} << 32;
      startModule(seed_ + round, round % 2 == 1);
      for (unsigned thread = 0; thread < kThreads; ++thread) {
        std::thread([seed = seed_ + kThreads * round + thread] { callAtRandom(seed, 1'000'000); }).detach();
      }
      Random random(seed_ + round);
      const std::int64_t calls = random() % 200;
      do postLifecycleNotification(random);
      while (shared().calls < calls);
      std::exit(HasFailure() ? 1 : 0);
    });
  }
}

}  // namespace
}  // namespace zorvane::testing
