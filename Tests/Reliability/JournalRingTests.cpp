// Ends a journal's process, or the machine's power, between any two of its stores.
#include "ZRAnalytics/Journal/ZRJournalRing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <set>

#include "Platform/Files/FileSystem.h"
#include "Support/FileFaults.h"
#include "Support/TemporaryDirectory.h"

namespace zorvane::journal {
namespace {

struct Death {};
int stepsLeft = 0;

void dieAtLastStep() {
  if (stepsLeft-- == 0) throw Death();
}

// What the process knew when it died.
struct Knowledge {
  struct Event {
    bool isReturned = false;
    bool isEnding = false;  // its release or a clear has begun
    bool isEnded = false;   // and returned
    bool isCleared = false;
    bool isSynced = false;
    int batch = 0;
    std::set<std::string> sessions;  // where it may be found
  };
  std::map<std::string, Event> events;
  // The batches in the batch file, and the last that was begun.
  std::set<int> renamed;
  int begun = 0;
};

constexpr std::size_t kBytes = 64u << 10;

// Goes around the ring several times: calls, rejections, saves, failed saves, sessions, a clear.
class Script {
 public:
  Script(Ring& ring, Knowledge& knowledge) : ring_(ring), known_(knowledge) {}

  void run() {
    setSession("S0");
    for (int i = 0; i < 250; ++i) {
      call(i);
      if (i % 5 == 4) end({last()});
      if (i % 3 == 2) record();
      if (i % 13 == 12) setSession("S" + std::to_string(i));
      if (i % 11 == 10) save(i % 3 != 0);
      if (i % 17 == 16) {
        ring_.sync();
        for (auto& [name, event] : known_.events) event.isSynced = true;
      }
      if (i == 60) {
        for (auto& [name, event] : known_.events) event.isEnding = true;
        ring_.clear();
        for (auto& [name, event] : known_.events) event.isEnded = event.isCleared = true;
        waiting_.clear();
      }
    }
  }

 private:
  using Positions = std::vector<std::pair<std::string, std::uint64_t>>;
  std::pair<std::string, std::uint64_t> last() {
    const auto event = waiting_.back();
    waiting_.pop_back();
    return event;
  }
  void setSession(const std::string& session) {
    ASSERT_TRUE(ring_.setSession(session + std::string(100, '.')));
    session_ = session;
  }
  void call(int number) {
    const std::string name = std::to_string(number);
    Knowledge::Event& event = known_.events[name];
    event.sessions = {session_};
    const std::uint64_t position = ring_.append(kEvent, name + std::string(500, ' '), number);
    ASSERT_NE(position, 0u);
    event.isReturned = true;
    waiting_.emplace_back(name, position);
  }
  void record() {
    for (const auto& [name, position] : waiting_) {
      known_.events[name].sessions.insert(session_);
      ring_.markRecorded(position, false, "gmt", "local");
      known_.events[name].sessions = {session_};
    }
    recorded_.insert(recorded_.end(), waiting_.begin(), waiting_.end());
    waiting_.clear();
  }
  void end(const Positions& events) {
    for (const auto& [name, position] : events) {
      known_.events[name].isEnding = true;
      ring_.release(position);
      known_.events[name].isEnded = true;
    }
  }
  void save(bool works) {
    // An event that a failed save put back need not be in the next save; host code within that may save it.
    Positions others;
    if (works && known_.events[recorded_.front().first].batch != 0) {
      others.push_back(recorded_.front());
      recorded_.erase(recorded_.begin());
    }
    save(std::exchange(recorded_, {}), works, known_.begun % 2 == 0 ? std::exchange(others, {}) : Positions());
    recorded_.insert(recorded_.begin(), others.begin(), others.end());
  }
  void save(const Positions& events, bool works, const Positions& inner) {
    const int batch = ++known_.begun;
    Operation operation = ring_.beginStore();
    for (const auto& [name, position] : events) {
      known_.events[name].batch = batch;
      ring_.assign(operation, position, std::to_string(batch));
    }
    if (!inner.empty()) save(inner, works, {});
    ring_.arm(operation);
    if (works) {
      known_.renamed.insert(batch);
      ring_.stored(operation);
    }
    ring_.endStore(operation);
    if (works) {
      end(events);
    } else {
      recorded_.insert(recorded_.end(), events.begin(), events.end());
    }
  }

  Ring& ring_;
  Knowledge& known_;
  std::string session_;
  Positions waiting_;
  Positions recorded_;
};

// What the next launch finds.
void check(const Contents& contents, const Knowledge& known) {
  std::set<std::string> found;
  for (const Found& event : contents.events) {
    const std::string name(event.payload.substr(0, event.payload.find(' ')));
    ASSERT_TRUE(found.insert(name).second) << name << " is there twice";
    const auto at = known.events.find(name);
    ASSERT_NE(at, known.events.end());
    const Knowledge::Event& expected = at->second;
    ASSERT_FALSE(expected.isEnded) << name << " comes back";
    const std::string_view session = sessionOf(contents, event.record);
    ASSERT_TRUE(expected.sessions.contains(std::string(session.substr(0, session.find('.'))))) << name;
    if (expected.batch == 0 || !known.renamed.contains(expected.batch)) continue;
    // Its batch is in the file: it must be found there.
    ASSERT_EQ(event.record.store, contents.header->armed) << name;
    ASSERT_EQ(textOf(event.record.batchID, sizeof event.record.batchID), std::to_string(expected.batch));
  }
  for (const auto& [name, event] : known.events) {
    const bool isSaved = event.batch != 0 && known.renamed.contains(event.batch);
    ASSERT_TRUE(!event.isReturned || event.isEnding || isSaved || found.contains(name)) << name << " is lost";
  }
  ASSERT_EQ(contents.damaged, 0u);
}

TEST(JournalRingTest, EveryInstantBetweenTwoStoresKeepsEveryEventOnce) {
  platform::skipFsync();
  const platform::TemporaryDirectory directory;
  const std::string path = directory.file("journal");
  Ring::onStep = dieAtLastStep;
  bool survives = false;
  for (int number = 0; !survives && !::testing::Test::HasFatalFailure(); ++number) {
    SCOPED_TRACE("death before store " + std::to_string(number));
    Knowledge known;
    std::string bytes;
    stepsLeft = number;
    try {
      Ring ring;
      ASSERT_TRUE(ring.open(path, kMaximumBytes, bytes));
      const Contents contents = readContents(bytes);
      if (contents.header) ring.keep(contents);
      ASSERT_TRUE(ring.start(kBytes, contents));
      Script(ring, known).run();
      survives = true;
    } catch (const Death&) {
    }
    stepsLeft = -1;
    Ring ring;
    ASSERT_TRUE(ring.open(path, kMaximumBytes, bytes));
    const Contents contents = readContents(bytes);
    // Before the start has cleared them, the events of the run before are there.
    if (known.events.empty()) continue;
    check(contents, known);
  }
  Ring::onStep = nullptr;
}

// The file with each page as it was last synced, at a moment since then, and now. The kernel may have written any.
struct Disk {
  std::string path;
  std::string synced = std::string(kBytes, '\0');
  std::string between;
  std::string now() const { return platform::readFile(path, kBytes).value(); }
  std::string afterPowerLoss(std::mt19937& chance) const {
    std::string left = now();
    for (std::size_t page = 0; page < kBytes; page += 4096) {
      const std::string* const older[] = {nullptr, &synced, &between};
      if (const std::string* const from = older[chance() % 3]) left.replace(page, 4096, *from, page, 4096);
    }
    return left;
  }
};
Disk disk;

void losePowerAtLastStep() {
  if (stepsLeft == 37) disk.between = disk.now();
  dieAtLastStep();
}

void noteSync(std::size_t first, std::size_t last) {
  const std::string now = disk.now();
  last = std::min(kBytes, (last + 4095) / 4096 * 4096);
  for (std::string* const older : {&disk.synced, &disk.between}) {
    older->replace(first, last - first, now, first, last - first);
  }
}

void checkAfterPowerLoss(const std::string& bytes, const Knowledge& known) {
  const Contents contents = readContents(bytes);
  std::set<std::string> found;
  for (const Found& event : contents.events) {
    const std::string name(event.payload.substr(0, event.payload.find(' ')));
    ASSERT_TRUE(found.insert(name).second) << name << " is there twice";
    const Knowledge::Event& expected = known.events.at(name);
    ASSERT_FALSE(expected.isCleared) << name << " comes back";
    if (!known.renamed.contains(expected.batch)) continue;
    ASSERT_EQ(event.record.store, contents.header->armed) << name;
    ASSERT_EQ(textOf(event.record.batchID, sizeof event.record.batchID), std::to_string(expected.batch));
  }
  for (const auto& [name, event] : known.events) {
    const bool isGone = event.isEnding || known.renamed.contains(event.batch);
    ASSERT_TRUE(!event.isSynced || isGone || found.contains(name)) << name << " is lost";
  }
}

TEST(JournalRingTest, PowerLossKeepsSyncedEventsAndRepeatsNoSavedOne) {
  platform::skipFsync();
  const platform::TemporaryDirectory directory;
  std::mt19937 chance(1);
  Ring::onStep = losePowerAtLastStep;
  Ring::onSync = noteSync;
  bool survives = false;
  for (int number = 0; !survives && !::testing::Test::HasFatalFailure(); number += 5) {
    SCOPED_TRACE("power loss before store " + std::to_string(number));
    disk = Disk();
    disk.path = directory.file("journal" + std::to_string(number));
    disk.between = disk.synced;
    Knowledge known;
    stepsLeft = -1;
    std::string bytes;
    Ring ring;
    ASSERT_TRUE(ring.open(disk.path, kBytes, bytes));
    ASSERT_TRUE(ring.start(kBytes, {}));
    stepsLeft = number;
    try {
      Script(ring, known).run();
      survives = true;
    } catch (const Death&) {
    }
    for (int i = 0; i < 5; ++i) checkAfterPowerLoss(disk.afterPowerLoss(chance), known);
  }
  Ring::onStep = nullptr;
  Ring::onSync = nullptr;
}

TEST(JournalRingTest, ClearedEventsAreReadUntilTheyAreMarkedOrReleased) {
  platform::skipFsync();
  const platform::TemporaryDirectory directory;
  static Ring ring;
  static std::vector<std::uint64_t> positions;
  static const std::string payload(500, 'x');
  static const auto append = [] { positions.push_back(ring.append(kEvent, payload, 0)); };
  std::string bytes;
  ASSERT_TRUE(ring.open(directory.file("journal"), kBytes, bytes));
  ASSERT_TRUE(ring.start(kBytes, {}));
  ASSERT_TRUE(ring.setSession("S0"));
  append();
  EXPECT_EQ(ring.read(positions[0]), payload);
  // A call has its space and has not written its record when another thread tracks and clears.
  Ring::onStep = [] {
    Ring::onStep = nullptr;
    append();
    ring.clear();
  };
  append();
  for (const std::uint64_t position : positions) EXPECT_EQ(ring.read(position), payload);
  ring.markRecorded(positions[0], false, "", "");
  ring.release(positions[1]);
  ring.release(positions[2]);
  EXPECT_EQ(platform::readFile(directory.file("journal"), kBytes).value().find(payload), std::string::npos) << "wiped";
  const std::vector<std::uint64_t> cleared = positions;
  for (int i = 0; i < 10; ++i) {
    append();
    ring.release(positions.back());
  }
  for (const std::uint64_t position : cleared) EXPECT_EQ(ring.read(position), std::nullopt);
}

TEST(JournalRingTest, FullRingThatWasClearedTakesEventsAgain) {
  platform::skipFsync();
  const platform::TemporaryDirectory directory;
  static Ring ring;
  static std::vector<std::uint64_t> positions;
  std::string bytes;
  ASSERT_TRUE(ring.open(directory.file("journal"), kBytes, bytes));
  ASSERT_TRUE(ring.start(kBytes, {}));
  ASSERT_TRUE(ring.setSession("S0"));
  // Until the oldest record is written, nothing can be swept.
  Ring::onStep = [] {
    Ring::onStep = nullptr;
    while (const std::uint64_t position = ring.append(kEvent, "", 1)) positions.push_back(position);
    EXPECT_FALSE(ring.setSession(std::string(1000, 'S')));
    ring.clear();
  };
  positions.push_back(ring.append(kEvent, "oldest", 1));
  EXPECT_EQ(ring.append(kEvent, "", 1), 0u);
  for (const std::uint64_t position : positions) ring.release(position);
  EXPECT_NE(ring.append(kEvent, "", 1), 0u);
}

TEST(JournalRingTest, DamagedLengthOfARecordStopsNoThread) {
  platform::skipFsync();
  const platform::TemporaryDirectory directory;
  const std::string path = directory.file("journal");
  for (const std::uint32_t units : {0u, ~0u}) {
    Ring ring;
    std::string bytes;
    ASSERT_TRUE(ring.open(path, kBytes, bytes));
    ASSERT_TRUE(ring.start(kBytes, readContents(bytes)));
    ASSERT_TRUE(ring.setSession("S0"));
    const std::uint64_t position = ring.append(kEvent, "Damaged", 1);
    const std::size_t at = platform::readFile(path, kBytes).value().find("Damaged") - sizeof(Record);
    std::fstream file(path, std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(at + offsetof(Record, units)));
    file.write(reinterpret_cast<const char*>(&units), sizeof units).flush();
    EXPECT_EQ(ring.read(position), std::nullopt);
    ring.release(position);
    while (ring.append(kEvent, "", 1) != 0) {
    }
  }
}

TEST(JournalRingTest, SessionWithoutRoomReleasesNoEvent) {
  platform::skipFsync();
  const platform::TemporaryDirectory directory;
  const std::string path = directory.file("journal");
  std::string bytes;
  Ring ring;
  ASSERT_TRUE(ring.open(path, kBytes, bytes));
  ASSERT_TRUE(ring.start(kBytes, {}));
  ASSERT_TRUE(ring.setSession("S0"));
  std::vector<std::uint64_t> positions;
  while (const std::uint64_t position = ring.append(kEvent, std::string(500, ' '), 1)) positions.push_back(position);
  EXPECT_FALSE(ring.setSession(std::string(2000, 'S')));
  for (const std::uint64_t position : positions) EXPECT_FALSE(ring.markRecorded(position, false, "gmt", "local"));
  EXPECT_EQ(readContents(platform::readFile(path, kBytes).value()).events.size(), positions.size());
  ring.clear();
  for (const std::uint64_t position : positions) EXPECT_EQ(ring.read(position), std::nullopt) << "it is in the batch";
}

TEST(JournalFormatTest, ValueOfMillionsIsRefused) {
  std::string payload = "a....";
  const std::uint32_t count = 2'000'000;
  std::memcpy(&payload[1], &count, sizeof count);
  payload.append(count, '0');
  std::string_view left = payload;
  EXPECT_FALSE(takeValue(left));
}

}  // namespace
}  // namespace zorvane::journal
