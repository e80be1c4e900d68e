// Ends the process, or the machine's power, before any store of the journal and any system call on a file, also while
// the next launches recover.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>

#include "Reliability/PowerLoss.h"
#include "Support/FileFaults.h"
#include "Support/ModuleTest.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Journal/ZRJournal.h"
#include "ZRAnalytics/Journal/ZRJournalRing.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"

namespace zorvane::testing {
namespace {

namespace fs = std::filesystem;

int stepsLeft = 0;
void dieAtLastStep() {
  if (stepsLeft-- == 0) _exit(9);
}

// The system's calls, each of them a step.
template <auto Call, typename... Arguments>
auto stepAnd(Arguments... arguments) {
  dieAtLastStep();
  return (platform::kRealSystemCalls.*Call)(arguments...);
}
using Calls = platform::SystemCalls;
constexpr Calls kSteppingCalls{stepAnd<&Calls::open>,     stepAnd<&Calls::openat>, stepAnd<&Calls::fstat>,
                               stepAnd<&Calls::fstatat>,  stepAnd<&Calls::read>,   stepAnd<&Calls::writev>,
                               stepAnd<&Calls::fsync>,    stepAnd<&Calls::close>,  stepAnd<&Calls::renameat>,
                               stepAnd<&Calls::unlinkat>, stepAnd<&Calls::mkdir>,  stepAnd<&Calls::flock>};

class JournalStepTest : public ModuleTest {
 protected:
  JournalStepTest() : root_(directory_), noted_((root_ / "noted").string()) {}
  ~JournalStepTest() override { directory_ = root_; }

  void useNewContainer() {
    directory_ = root_ / "container";
    fs::remove_all(directory_);
    for (const char* name : {"Documents", "Library", "Defaults"}) fs::create_directories(directory_ / name);
    fs::remove(noted_);
  }
  void copyTo(const char* name) const {
    fs::remove_all(root_ / name);
    fs::create_directory(root_ / name);
    fs::copy(directory_, root_ / name / "container", fs::copy_options::recursive);
    if (fs::exists(noted_)) fs::copy(noted_, root_ / name / "noted");
  }
  void copyFrom(const char* name) const {
    fs::remove_all(directory_);
    fs::copy(root_ / name / "container", directory_, fs::copy_options::recursive);
    fs::remove(noted_);
    if (fs::exists(root_ / name / "noted")) fs::copy(root_ / name / "noted", noted_);
  }

  // Appends a line to a file that outlives the process.
  void note(const std::string& line) const {
    const int file = ::open(noted_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    const std::string text = line + "\n";
    EXPECT_EQ(::write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    ::close(file);
  }

  // Runs a launch in a child that dies before that step; never, if negative. Returns whether it died.
  bool diesIn(int step, const std::function<void()>& life) {
    return diesBy(
        [step] {
          stepsLeft = step;
          platform::setSystemCalls(&kSteppingCalls);
          journal::Ring::onStep = dieAtLastStep;
        },
        life);
  }
  bool losesPowerIn(int step, unsigned seed, const std::function<void()>& life) {
    return diesBy([&] { loseJournalPowerAt(step, seed, directory_.string(), library("ZrvData/ZREventJournal")); },
                  life);
  }
  bool diesBy(const std::function<void()>& prepareDeath, const std::function<void()>& life) {
    const pid_t child = fork();
    if (child == 0) {
      prepareDeath();
      launch();
      life();
      _exit(HasFailure() ? 1 : 0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 9)) << status;
    return WEXITSTATUS(status) == 9;
  }
  void launch() {
    core_.journal = makeEventJournal({.bytes = 64u << 10, .syncSeconds = kSyncSeconds});
    start({{"event_batch_count", 3}, {"blacklisted_events", Array{"Blocked"}}, {"periodic_flush_enabled", false}});
    service_->decide = [this](const FakeService::Request& request) {
      const Dictionary& body = *request.body.asDictionary();
      const Value events = body.objectForKey("viewsInfo");
      if (isRefusing_ || !events.isArray()) return 503;
      const std::string batch = validObjectForKeyPath(body, "meta.bid").description() + " " +
                                validObjectForKeyPath(body, "meta.session.session_id").description();
      const std::vector<std::string> names = eventNames(*events.asArray());
      expectOrder(names);
      for (const Value& event : *events.asArray()) expectWhole(*event.asDictionary());
      for (const std::string& name : names) {
        EXPECT_TRUE(name.size() > 2 || std::count(names.begin(), names.end(), name) == 1) << name;
        note("accepted " + name + " " + batch);
      }
      return 200;
    };
    ZRAnalytics::sharedInstance().initializeAnalytics();
    settle();
  }
  // Those of the module itself have longer names.
  static void expectOrder(std::vector<std::string> names) {
    std::erase_if(names, [](const std::string& name) { return name.size() != 2; });
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  }
  static void expectWhole(const Dictionary& event) {
    const std::string name = event.objectForKey("EVENT_ACTION").description();
    if (name.size() != 2) return;
    const Dictionary& attributes = *event.objectForKey("EVENT_ATTRS").asDictionary();
    const auto size = static_cast<std::size_t>(attributes.objectForKey("n").integerValue());
    EXPECT_EQ(attributes.objectForKey("text"), Value(std::string(size, name.back())));
  }
  void track(const std::string& name, std::size_t size = 1) {
    const auto session = ZRSessionManager::sharedSessionManager().getCurrentSessionInfoDict();
    const Dictionary attributes{{"n", static_cast<std::int64_t>(size)}, {"text", std::string(size, name.back())}};
    ZRAnalytics::sharedInstance().trackEventWithProperties(name, ZRProperties::initWithAttributes(attributes));
    tracked_.push_back(name + " " + session->objectForKey("session_id").description());
    note("returned " + tracked_.back());
  }
  // Calls, a full batch that is accepted, a rejected event, a new session, a batch that is refused, an event in flight.
  void live() {
    track("E1");
    settle();
    track("E2");
    track("E3");
    track("Blocked");
    settle();
    track("E4");
    settle();
    ZRSessionManager::sharedSessionManager().appOpenedWithSourceArray(
        {ZRSource::initSourceWithURL("https://shop.test/?utm_source=mail")});
    track("E5");
    settle();
    isRefusing_ = true;
    ZREventsHandler::sharedInstance().flushWithCompletionBlock(nullptr);
    settle();
    track("E6");
    settle();
    track("E7");
  }
  // Of each event that this launch tracked and did not clear.
  void noteAll(const std::string& kind) const {
    for (const std::string& event : tracked_) note(kind + " " + event);
  }
  void syncJournal() {
    scheduler_->advance(kSyncSeconds);
    noteAll("synced");
  }
  void save() {
    settle();
    ZREventsHandler::sharedInstance().saveCurrentBatch();
    noteAll("saved");
  }
  // Goes around the journal several times.
  void liveLong() {
    for (int i = 10; i < 60; ++i) {
      track(std::to_string(i), static_cast<std::size_t>(i * 977 % 5000));
      if (i % 4 != 0) settle();
      if (i % 7 == 6) syncJournal();
      if (i % 5 == 4) {
        save();
        isRefusing_ = i % 2 == 0;
        ZREventsHandler::sharedInstance().flushWithCompletionBlock(nullptr);
        settle();
      }
      if (i % 9 == 8) {
        settle();
        const std::string url = "https://shop.test/?utm_source=mail" + std::to_string(i);
        ZRSessionManager::sharedSessionManager().appOpenedWithSourceArray({ZRSource::initSourceWithURL(url)});
      }
      if (i == 41) {
        settle();
        noteAll("clearing");
        ZREventsHandler::sharedInstance().clearEventsdata();
        noteAll("cleared");
        tracked_.clear();
      }
    }
  }
  void liveAgain() {
    track("90", 2000);
    syncJournal();
    track("91");
    save();
  }
  void sendAll() {
    isRefusing_ = false;
    ZREventsHandler::sharedInstance().flushWithCompletionBlock(nullptr);
    settle();
    for (const std::string& message : log_->messages()) {
      EXPECT_TRUE(message.find("cannot") == std::string::npos && message.find("memory only") == std::string::npos &&
                  !message.starts_with("Batch Events plist :") && !message.starts_with("Defaults :"))
          << message;
    }
  }

  // After a launch that sends everything: each event with such a note arrived in one batch, under its session.
  void expectEachOnce(const std::string& kept = "returned") const {
    std::map<std::string, std::string> expected;
    std::map<std::string, std::set<std::string>> batchesOf;
    std::map<std::string, std::string> sessionOf;
    std::set<std::string> cleared;
    std::ifstream stream(noted_);
    for (std::string kind, name, word; stream >> kind >> name >> word;) {
      if (kind == "accepted") {
        ASSERT_FALSE(cleared.contains(name)) << name << " comes back";
        batchesOf[name].insert(word);
        // The service ignores a batch that it has.
        stream >> word;
        sessionOf.emplace(name, word);
      } else if (kind == kept) {
        expected[name] = word;
      } else if (kind == "synced") {
        // A power loss may cost the session's record.
        expected.emplace(name, "");
      } else if (kind == "clearing") {
        expected.erase(name);
      } else if (kind == "cleared") {
        cleared.insert(name);
      }
    }
    ASSERT_EQ(batchesOf.count("Blocked"), 0u);
    for (const auto& [name, session] : expected) {
      if (name == "Blocked") continue;
      ASSERT_EQ(batchesOf[name].size(), 1u) << name;
      ASSERT_TRUE(session.empty() || sessionOf[name] == session) << name;
    }
    for (const auto& [name, batches] : batchesOf) {
      ASSERT_TRUE(batches.size() == 1 || name.size() > 2) << name;
    }
  }

  const fs::path root_;
  const std::string noted_;
  static constexpr double kSyncSeconds = 60;
  bool isRefusing_ = false;
  std::vector<std::string> tracked_;
};

TEST_F(JournalStepTest, DeathAtAnyStepCostsNoEvent) {
  bool died = true;
  for (int step = 0; died && !HasFailure(); ++step) {
    SCOPED_TRACE("death before step " + std::to_string(step));
    useNewContainer();
    died = diesIn(step, [this] { live(); });
    // Twice more, during the recovery.
    diesIn(step * 7 % 211, [] {});
    diesIn(step * 13 % 197, [] {});
    EXPECT_FALSE(diesIn(-1, [this] { sendAll(); }));
    expectEachOnce();
  }
}

TEST_F(JournalStepTest, PowerLossCostsNoSavedEventAndRepeatsNone) {
  bool died = true;
  for (int step = 0; died && !HasFailure(); step += 3) {
    SCOPED_TRACE("power loss before step " + std::to_string(step));
    const auto seed = static_cast<unsigned>(step / 3);
    useNewContainer();
    died = losesPowerIn(step, seed, [this] { liveLong(); });
    // Once more, during the recovery or after it.
    losesPowerIn(step * 7 % 67, seed / 2, [this] { liveAgain(); });
    EXPECT_FALSE(diesIn(-1, [this] { sendAll(); }));
    expectEachOnce("saved");
  }
}

TEST_F(JournalStepTest, DeathAtAnyStepOfARecoveryCostsNoEvent) {
  int steps = 0;
  useNewContainer();
  while (diesIn(steps, [this] { live(); })) {
    useNewContainer();
    steps += 50;
  }
  // Between the steps that save the refused batch, and at the end.
  for (const int end : {steps - 250, steps - 150, steps - 60, steps}) {
    useNewContainer();
    diesIn(end, [this] { live(); });
    copyTo("killed");
    bool died = true;
    for (int step = 0; died && !HasFailure(); ++step) {
      SCOPED_TRACE("death before step " + std::to_string(end) + ", then " + std::to_string(step));
      copyFrom("killed");
      died = diesIn(step, [] {});
      EXPECT_FALSE(diesIn(-1, [this] { sendAll(); }));
      expectEachOnce();
    }
  }
}

}  // namespace
}  // namespace zorvane::testing
