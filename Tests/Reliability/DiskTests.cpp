// Runs the module while one system call after another fails, and while the power fails at one call after another.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "Platform/Formats/PropertyList.h"
#include "Reliability/PowerLoss.h"
#include "Support/FileFaults.h"
#include "ZRAnalytics/EventManagement/EventPipelineTest.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"

namespace zorvane::testing {
namespace {

using platform::FaultKind;
using platform::FileFaults;
namespace fs = std::filesystem;

// The long form has more errors (scripts/torture disk).
bool isLong() {
  return std::getenv("ZR_TORTURE_LONG") != nullptr;
}

class DiskTest : public EventPipelineTest {
 protected:
  DiskTest() : root_(directory_) {}
  ~DiskTest() override { directory_ = root_; }

  // Makes a new container, with the dump file of an earlier release and the temporary file of a killed process.
  void useNewContainer() {
    directory_ = root_ / ("container" + std::to_string(++containers_));
    for (const char* name : {"Documents", "Library", "Defaults"}) fs::create_directories(directory_ / name);
    writeAll(dumpPath(), "{\"EVENT_ACTION\": \"dump\"}\n");
    writeAll(documents(".zrv-00112233445566778899"), "half a fi");
    noted_ = (root_ / ("noted" + std::to_string(containers_))).string();
  }

  // Appends a line, "saved NAME" or "accepted BID NAME", to a file that outlives the process.
  void note(const std::string& line) const {
    const int file = ::open(noted_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    const std::string text = line + "\n";
    EXPECT_EQ(::write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    ::close(file);
  }
  std::vector<std::vector<std::string>> notes(const std::string& kind) const {
    std::vector<std::vector<std::string>> found;
    std::ifstream stream(noted_);
    for (std::string line; std::getline(stream, line);) {
      std::istringstream words(line);
      std::vector<std::string> all{std::istream_iterator<std::string>(words), {}};
      if (all.front() == kind) found.emplace_back(all.begin() + 1, all.end());
    }
    return found;
  }

  void launch() {
    start({{"periodic_flush_enabled", false}, {"app_group_id", "group.test"}});
    service_->decide = [this](const FakeService::Request& request) {
      const Array& views = *request.body.asDictionary()->objectForKey("viewsInfo").asArray();
      const std::vector<std::string> names = eventNames(views);
      if (refused_ && std::find(names.begin(), names.end(), "one") != names.end()) return 503;
      const std::string bid = validObjectForKeyPath(*request.body.asDictionary(), "meta.bid").description();
      for (const std::string& name : names) note("accepted " + bid + " " + name);
      return 200;
    };
    ZRAnalytics::sharedInstance().initializeAnalytics();
    settle();
  }
  // Notes the names as saved when the save leaves no event in memory.
  void saveNoted(const std::vector<std::string>& names) {
    save(names);
    tracked_.insert(tracked_.end(), names.begin(), names.end());
    if (!currentNames().empty()) return;
    for (const std::string& name : tracked_) note("saved " + name);
    tracked_.clear();
  }
  // Writes, rewrites and removes every file: batches, session, attributes, defaults, choices, dump file.
  void useEveryFile() {
    launch();
    refused_ = true;
    saveNoted({"one", "two"});
    ZRAnalytics::sharedInstance().setUserAttributeForKey("gold", "level");
    setSDKEnabled(true);
    settle();
    saveNoted({"three"});
    flush(answers_);
    settle();
    saveNoted({"four"});
    center_->post(platform::kDidEnterBackgroundNotification);
    center_->post(platform::kWillTerminateNotification);
    settle();
  }
  // The last launch: everything that is left arrives.
  void sendAll() {
    refused_ = false;
    saveNoted({"last"});
    flush(answers_);
    settle();
    EXPECT_EQ(answers_.back(), std::pair(true, true));
    EXPECT_FALSE(fs::exists(batchPath()));
  }

  void expectWholeFiles() const {
    for (const auto& entry : fs::recursive_directory_iterator(directory_)) {
      const std::string name = entry.path().filename().string();
      if (!entry.is_regular_file() || name == "zorvaneEvents.dat" || name.starts_with(".zrv-")) continue;
      EXPECT_TRUE(platform::parsePropertyList(readAll(entry.path().string()))) << entry.path();
    }
  }
  // Every saved event was accepted, in one batch only.
  void expectNothingLost() const {
    std::map<std::string, std::set<std::string>> batchesOf;
    for (const auto& words : notes("accepted")) batchesOf[words[1]].insert(words[0]);
    for (const auto& words : notes("saved")) EXPECT_EQ(batchesOf[words[0]].size(), 1u) << words[0];
  }
  bool hasLeftovers() const {
    const fs::directory_iterator all(directory_ / "Documents");
    return std::any_of(begin(all), end(all),
                       [](const auto& entry) { return entry.path().filename().string().starts_with(".zrv-"); });
  }

  const fs::path root_;
  int containers_ = 0;
  std::string noted_;
  bool refused_ = false;
  Answers answers_;
  std::vector<std::string> tracked_;
};

TEST_F(DiskTest, FailingCallCostsNoEventAndNoFile) {
  const struct {
    FaultKind kind;
    int error;
    bool always;
  } kFaults[] = {
      {FaultKind::Once, EIO, true},           {FaultKind::FromThereOn, ENOSPC, true},
      {FaultKind::Once, EINTR, false},        {FaultKind::Once, EACCES, false},
      {FaultKind::Once, ENOSPC, false},       {FaultKind::FromThereOn, EROFS, false},
      {FaultKind::FromThereOn, EIO, false},   {FaultKind::FromThereOn, EACCES, false},
      {FaultKind::ShortWrites, ENOSPC, true},
  };
  const std::string reachedMark = (root_ / "reached").string();
  for (const auto& [kind, error, always] : kFaults) {
    if (!always && !isLong()) continue;
    int number = 0;
    for (bool reached = true; reached; ++number) {
      SCOPED_TRACE(::testing::Message() << "call " << number << ", kind " << static_cast<int>(kind) << ", "
                                        << std::strerror(error));
      useNewContainer();
      inEarlierLaunch([&, faultKind = kind, code = error] {
        FileFaults faults(number, faultKind, code);
        useEveryFile();
        faults.lift();
        if (FileFaults::reached()) writeAll(reachedMark, "");
        std::map<std::string, int> logged;
        for (const std::string& message : log_->messages()) {
          if (message.find(std::strerror(code)) != std::string::npos) ++logged[message];
        }
        EXPECT_TRUE(currentNames().empty() || !logged.empty()) << "a failed save was not logged";
        for (const auto& [message, times] : logged) EXPECT_EQ(times, 1) << message;
        expectWholeFiles();
        sendAll();
        expectWholeFiles();
      });
      expectNothingLost();
      EXPECT_EQ(notes("saved").size(), 5u);
      reached = fs::remove(reachedMark);
      if (HasFailure()) return;
    }
    EXPECT_GT(number, kind == FaultKind::ShortWrites ? 8 : 80);
  }
}

TEST_F(DiskTest, PowerLossLeavesWholeFilesAndEverySavedEvent) {
  for (const UnsyncedNames names : {UnsyncedNames::Lost, UnsyncedNames::Kept}) {
    int number = 0;
    for (bool reached = true; reached; ++number) {
      SCOPED_TRACE(::testing::Message() << "call " << number << ", names " << static_cast<int>(names));
      useNewContainer();
      const std::string ended = (root_ / "ended").string();
      inEarlierLaunch([&] {
        losePowerAt(number, names, directory_.string());
        useEveryFile();
        writeAll(ended, "");
      });
      reached = !fs::remove(ended);
      expectWholeFiles();
      inEarlierLaunch([&] {
        platform::skipFsync();
        launch();
        sendAll();
        for (const std::string& message : log_->messages()) {
          EXPECT_FALSE(message.starts_with("Batch Events plist :") || message.starts_with("Defaults :")) << message;
        }
      });
      expectNothingLost();
      EXPECT_FALSE(hasLeftovers());
      if (HasFailure()) return;
    }
    EXPECT_GT(number, 50);
  }
}

// The end of a sync removes the file without a sync of the directory.
TEST_F(DiskTest, ClearedEventsStayAwayAfterAPowerLoss) {
  const std::string cleared = (root_ / "cleared").string();
  const std::string ended = (root_ / "ended").string();
  bool wasCleared = false;
  for (int number = 0; !fs::remove(ended); ++number) {
    useNewContainer();
    inEarlierLaunch([&] {
      losePowerAt(number, UnsyncedNames::Lost, directory_.string());
      launch();
      saveNoted({"one"});
      flush(answers_);
      settle();
      events().clearEventsdata();
      writeAll(cleared, "");
      ZRAnalytics::sharedInstance().setAlias("another");  // writes to other directories
      writeAll(ended, "");
    });
    if (!fs::remove(cleared)) continue;
    wasCleared = true;
    EXPECT_FALSE(fs::exists(batchPath())) << "call " << number;
  }
  EXPECT_TRUE(wasCleared);
}

}  // namespace
}  // namespace zorvane::testing
