// Ends the process before any store of the journal and any system call on a file, also while the next launches recover.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>

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
    const pid_t child = fork();
    if (child == 0) {
      stepsLeft = step;
      platform::setSystemCalls(&kSteppingCalls);
      journal::Ring::onStep = dieAtLastStep;
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
    core_.journal = makeEventJournal({.bytes = 64u << 10});
    start({{"event_batch_count", 3}, {"blacklisted_events", Array{"Blocked"}}, {"periodic_flush_enabled", false}});
    service_->decide = [this](const FakeService::Request& request) {
      const Dictionary& body = *request.body.asDictionary();
      const Value events = body.objectForKey("viewsInfo");
      if (isRefusing_ || !events.isArray()) return 503;
      const std::string batch = validObjectForKeyPath(body, "meta.bid").description() + " " +
                                validObjectForKeyPath(body, "meta.session.session_id").description();
      const std::vector<std::string> names = eventNames(*events.asArray());
      for (const std::string& name : names) {
        EXPECT_TRUE(name.size() > 2 || std::count(names.begin(), names.end(), name) == 1) << name;
        note("accepted " + name + " " + batch);
      }
      return 200;
    };
    ZRAnalytics::sharedInstance().initializeAnalytics();
    settle();
  }
  void track(const std::string& name) {
    const auto session = ZRSessionManager::sharedSessionManager().getCurrentSessionInfoDict();
    ZRAnalytics::sharedInstance().trackEventWithProperties(name, ZRProperties::initWithAttributes({{"n", 1}}));
    note("returned " + name + " " + session->objectForKey("session_id").description());
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
  void sendAll() {
    isRefusing_ = false;
    ZREventsHandler::sharedInstance().flushWithCompletionBlock(nullptr);
    settle();
  }

  // After a launch that sends everything: each event whose call returned arrived in one batch, under its session.
  void expectEachOnce() const {
    std::map<std::string, std::string> returned;
    std::map<std::string, std::set<std::string>> batchesOf;
    std::map<std::string, std::string> sessionOf;
    std::ifstream stream(noted_);
    for (std::string kind, name, word; stream >> kind >> name >> word;) {
      if (kind == "returned") {
        returned[name] = word;
        continue;
      }
      batchesOf[name].insert(word);
      stream >> sessionOf[name];
    }
    ASSERT_EQ(batchesOf.count("Blocked"), 0u);
    for (const auto& [name, session] : returned) {
      if (name == "Blocked") continue;
      ASSERT_EQ(batchesOf[name].size(), 1u) << name;
      ASSERT_EQ(sessionOf[name], session) << name;
    }
    for (const auto& [name, batches] : batchesOf) {
      ASSERT_TRUE(batches.size() == 1 || name.size() > 2) << name;
    }
  }

  const fs::path root_;
  const std::string noted_;
  bool isRefusing_ = false;
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
