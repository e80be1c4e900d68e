// Launches that end without a word, and what the next launch makes of their journal.
#include "ZRAnalytics/Journal/ZRJournal.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <map>
#include <new>
#include <utility>

#include "Platform/Files/SystemCalls.h"
#include "Support/ModuleTest.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Journal/ZRJournalFormat.h"
#include "ZRAnalytics/Journal/ZRJournalRing.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/Utils/ZRGeoLocation.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"

namespace zorvane::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
namespace fs = std::filesystem;

class JournalTest : public ModuleTest {
 protected:
  std::string journal() const { return library("ZrvData/ZREventJournal"); }

  void launch(Dictionary configuration = {}) {
    core_.journal = makeEventJournal(options_);
    configuration.set("periodic_flush_enabled", false);
    start(configuration);
    service_->decide = [](const FakeService::Request&) { return 503; };
    ZRAnalytics::sharedInstance().initializeAnalytics();
    settle();
  }
  void track(const std::string& name, std::shared_ptr<ZRProperties> properties = nullptr) {
    ZRAnalytics::sharedInstance().trackEventWithProperties(name, std::move(properties));
  }
  // Tracks it and waits until it is recorded.
  void record(const std::string& name) {
    track(name);
    settle();
  }
  static void save() { ZREventsHandler::sharedInstance().saveCurrentBatch(); }
  std::string batches() const { return documents("ZorvaneBatchEvents.plist"); }
  void makeSavesFail() {
    ZREventsHandler::sharedInstance().removeEventsPlistFile();
    fs::create_directory(batches());
  }
  static std::string session() {
    return ZRSessionManager::sharedSessionManager()
        .getCurrentSessionInfoDict()
        ->objectForKey("session_id")
        .description();
  }
  // The names of the application's own events in the batch file, a list for each batch.
  std::vector<std::vector<std::string>> savedNames() const {
    std::vector<std::vector<std::string>> names;
    for (const auto& [id, batch] : batchFile()) {
      names.emplace_back();
      for (const Value& event : *batch.asDictionary()->objectForKey("events").asArray()) {
        const std::string name = event.asDictionary()->objectForKey("EVENT_ACTION").description();
        if (!name.starts_with("EVENT_ACTION_")) names.back().push_back(name);
      }
    }
    return names;
  }
  Dictionary savedBatch(std::ptrdiff_t number) const { return *(batchFile().begin() + number)->value.asDictionary(); }

  ZRJournalOptions options_;
};

TEST_F(JournalTest, KilledLaunchLosesNoEvent) {
  const std::string noted = library("session");
  inEarlierLaunch([&] {
    launch();
    ZRAnalytics::sharedInstance().initializeAnalytics();  // once more, which opens nothing
    track("Recorded", ZRProperties::initWithAttributes(
                          {{"price", 10.5}, {"many", std::uint64_t{1} << 60}, {"list", Array{1, Date{5}, nullptr}}}));
    settle();
    EXPECT_EQ(ZREventsHandler::sharedInstance().viewsInfoArray()->back().asDictionary()->size(), 4u) << "no ticket";
    clock_->advance(1);
    auto properties = std::make_shared<ZRProperties>();
    properties->setNonInteractive();
    properties->addLocationAttributeWithName(ZRGeoLocation::initWithLatitudeAndLongitude(1, 2), "place");
    properties->addDateEpochAttributeWithName(7, "when");
    Value deep = 1;
    for (int i = 0; i < 200; ++i) deep = Array{std::move(deep)};
    properties->addAttributeWithName(deep, "deep");
    track("Called", properties);
    writeAll(noted, session());
  });
  EXPECT_THAT(savedNames(), IsEmpty());
  clock_->advance(7200);
  launch();
  ASSERT_THAT(savedNames(), ElementsAre(ElementsAre("Recorded", "Called")));
  const Dictionary batch = savedBatch(0);
  EXPECT_EQ(validObjectForKeyPath(batch, "session.session_id"), Value(readAll(noted)));
  EXPECT_NE(readAll(noted), session()) << "the session has expired";
  const Array events = *batch.objectForKey("events").asArray();
  const Dictionary first = *events[events.size() - 2].asDictionary();
  EXPECT_EQ(first,
            (Dictionary{{"EVENT_ACTION", "Recorded"},
                        {"EVENT_ATTRS",
                         Dictionary{{"price", 10.5}, {"many", std::uint64_t{1} << 60}, {"list", Array{1, Date{5}}}}},
                        {"EVENT_G_TIME", "2026-11-21T10:00:00.000Z"},
                        {"EVENT_L_TIME", first.objectForKey("EVENT_L_TIME")}}));
  const Dictionary second = *events.back().asDictionary();
  EXPECT_EQ(second.objectForKey("EVENT_G_TIME"), Value("2026-11-21T10:00:01.000Z"));
  EXPECT_EQ(second.objectForKey("N_I_E"), Value(1));
  EXPECT_EQ(second.objectForKey("EVENT_ATTRS_CUST"),
            Value(Dictionary{{"timestamp", Array{Dictionary{{"when", 7000.0}}}},
                             {"location", Array{Dictionary{{"place", "1.000000,2.000000"}}}}}));
}

TEST_F(JournalTest, RecordedEventsHaveTheValuesOfTheCall) {
  class Delegate final : public ZREventTriggerDelegate {
   public:
    void eventTrackedWithNameAndEventAttr(const Value& name, Dictionary& record) override {
      records[name.description()] = record;
    }
    std::map<std::string, Dictionary> records;
  };
  options_.bytes = 8u << 20;
  launch();
  const auto delegate = std::make_shared<Delegate>();
  ZRAnalytics::sharedInstance().setInappTriggerDelegate(delegate);
  const std::shared_ptr<const platform::Object> object = ZRGeoLocation::initWithLatitudeAndLongitude(1, 2);
  Value deep = "bottom";
  for (int i = 0; i < 600; ++i) deep = Array{std::move(deep)};
  const Dictionary plain{{"yes", true},
                         {"integer", -7},
                         {"large", std::uint64_t{1} << 63},
                         {"double", 2.0},
                         {"empty", ""},
                         {"text", std::string(2000, 'x')},
                         {"list", Array{Value(), platform::null, Date{2}, platform::Data{{0, 1}}, platform::URL{"a:b"},
                                        Dictionary{{"no", false}, {"none", platform::null}}}}};
  const std::pair<const char*, Dictionary> events[] = {{"Plain", plain},
                                                       {"Object", {{"list", Array{object}}}},
                                                       {"Deep", {{"deep", deep}}},
                                                       {"Many", {{"list", Array(journal::kMaximumValues, true)}}}};
  for (const auto& [name, attributes] : events) track(name, ZRProperties::initWithAttributes(attributes));
  auto custom = std::make_shared<ZRProperties>();
  custom->setNonInteractive();
  custom->addDateEpochAttributeWithName(7, "when");
  track("Custom", custom);
  ZRAnalytics::sharedInstance().trackEventWithProperties(5, nullptr);
  ZRAnalytics::sharedInstance().trackEventWithProperties(nullptr, nullptr);
  settle();
  EXPECT_EQ(log_->count("While tracking events, the name of the event has to be a NSString type"), 2u);
  for (const auto& [name, attributes] : events) {
    SCOPED_TRACE(name);
    const Value recorded = delegate->records[name].objectForKey("EVENT_ATTRS");
    ASSERT_EQ(recorded, Value(attributes));
    auto expected = attributes.begin();
    for (const auto& [key, value] : *recorded.asDictionary()) {
      EXPECT_EQ(key, expected->key);
      EXPECT_EQ(value.kind(), (expected++)->value.kind()) << key.view();
    }
  }
  EXPECT_EQ(delegate->records["Custom"].objectForKey("N_I_E"), Value(1));
  EXPECT_EQ(validObjectForKeyPath(delegate->records["Custom"], "EVENT_ATTRS_CUST.timestamp"),
            Value(Array{Dictionary{{"when", 7000.0}}}));
}

TEST_F(JournalTest, EventsStayInTheirSession) {
  inEarlierLaunch([&] {
    launch();
    record("Old");
    // A session without a flush, as after a reset.
    ZRSessionManager::sharedSessionManager().reinitiateSession();
    record("New");
    ZRSessionManager::sharedSessionManager().updateSourcesForCurrentSession(
        ZRSourceArray{ZRSource::initSourceWithURL("https://shop.test/?utm_source=mail")});
    track("Sourced");
  });
  launch();
  ASSERT_THAT(savedNames(), ElementsAre(ElementsAre("Old"), ElementsAre("New"), ElementsAre("Sourced")));
  const auto sessionOf = [&](std::ptrdiff_t number) {
    return validObjectForKeyPath(savedBatch(number), "session.session_id").description();
  };
  EXPECT_NE(sessionOf(0), sessionOf(1));
  EXPECT_EQ(sessionOf(1), sessionOf(2));
  EXPECT_THAT(*savedBatch(1).objectForKey("source").asArray(), IsEmpty());
  EXPECT_EQ(savedBatch(2).objectForKey("source").asArray()->size(), 1u);
}

TEST_F(JournalTest, SavedAndRejectedEventsDoNotComeBack) {
  inEarlierLaunch([&] {
    launch({{"blacklisted_events", Array{"Blocked"}}});
    record("Saved");
    save();
    record("Blocked");
    track("BlockedLater");
    track("Kept");
  });
  launch({{"blacklisted_events", Array{"BlockedLater"}}});
  EXPECT_THAT(savedNames(), ElementsAre(ElementsAre("Saved"), ElementsAre("Kept")));
}

TEST_F(JournalTest, NothingComesBackAfterAnOptOut) {
  inEarlierLaunch([&] {
    launch();
    record("Recorded");
    track("Called");
    ZRAnalytics::sharedInstance().optOutOfDataTracking(true);
    ZRAnalytics::sharedInstance().optOutOfDataTracking(false);
  });
  EXPECT_EQ(readAll(journal()).find("Recorded"), std::string::npos) << "its bytes are wiped";
  launch();
  EXPECT_THAT(savedNames(), IsEmpty());
}

TEST_F(JournalTest, RefusedSaveLeavesTheEventsInTheJournal) {
  inEarlierLaunch([&] {
    launch();
    record("One");
    makeSavesFail();
    save();
    record("Two");
  });
  inEarlierLaunch([&] {
    launch();
    EXPECT_TRUE(log_->has("Journal : its events cannot be saved and wait for the next launch"));
    fs::remove(batches());
    record("Three");
    save();
  });
  launch();
  EXPECT_THAT(savedNames(), ElementsAre(ElementsAre("Three"), ElementsAre("One", "Two")));
}

TEST_F(JournalTest, UnreadableBatchFileLeavesTheEventsInTheJournal) {
  inEarlierLaunch([&] {
    launch();
    track("One");
  });
  writeAll(batches(), "no property list");
  inEarlierLaunch([&] { launch(); });
  fs::remove(batches());
  launch();
  EXPECT_THAT(savedNames(), ElementsAre(ElementsAre("One")));
}

TEST_F(JournalTest, FullJournalIsReportedOnceAndEmptiesWithASave) {
  options_.bytes = 1;  // as small as it may be
  inEarlierLaunch([&] {
    launch({{"event_batch_count", 100000}});
    for (int i = 0; i < 1000; ++i) track("Many");
    settle();
    EXPECT_EQ(log_->count("Journal : full, events are in memory only"), 1u);
    save();
    EXPECT_EQ(savedNames().at(0).size(), 1000u) << "those that had no room too";
    fs::remove(batches());
    // Several times the size of the ring.
    for (int i = 0; i < 1000; ++i) {
      record("Wrapped" + std::to_string(i));
      if (i % 7 == 0) save();
    }
  });
  const auto before = savedNames().size();
  launch();
  ASSERT_EQ(savedNames().size(), before + 1);
  EXPECT_THAT(savedNames().back(), ElementsAre("Wrapped995", "Wrapped996", "Wrapped997", "Wrapped998", "Wrapped999"));
}

TEST_F(JournalTest, CallBeforeItTakesEventsIsRecordedAndNotReported) {
  // While the file and the record of the first session are written.
  static int stepsLeft = 5;
  static void (*trackEarly)() = [] {
    journal::Ring::onStep = nullptr;
    ZRAnalytics::sharedInstance().trackEventWithProperties("Early", nullptr);
    if (--stepsLeft > 0) journal::Ring::onStep = trackEarly;
  };
  journal::Ring::onStep = trackEarly;
  launch();
  EXPECT_FALSE(log_->has("Journal : full, events are in memory only"));
  EXPECT_THAT(eventNames(*ZREventsHandler::sharedInstance().viewsInfoArray()), Contains("Early"));
}

TEST_F(JournalTest, DamageCostsWhatIsDamaged) {
  const auto killed = [&] {
    launch();
    track("Damaged");
    track("Whole");
  };
  inEarlierLaunch(killed);
  std::string bytes = readAll(journal());
  bytes[bytes.find("Damaged")] = 'X';
  writeAll(journal(), bytes);
  inEarlierLaunch([&] {
    launch();
    EXPECT_TRUE(log_->has("Journal : 1 records are damaged and lost"));
    EXPECT_THAT(savedNames(), ElementsAre(ElementsAre("Whole")));
    fs::remove(batches());
    track("Damaged");
  });
  bytes = readAll(journal());
  bytes[7] = '9';
  writeAll(journal(), bytes);
  launch();
  EXPECT_TRUE(log_->has("Journal : the file is damaged or of another version and is made anew"));
  EXPECT_THAT(savedNames(), IsEmpty());
}

TEST_F(JournalTest, DamagedFieldOutsideOfTheCallCostsNoEvent) {
  for (const std::size_t field :
       {offsetof(journal::Record, recordedSum), offsetof(journal::Record, session), offsetof(journal::Record, times),
        offsetof(journal::Record, isAllowed), offsetof(journal::Record, store), offsetof(journal::Record, batchID)}) {
    SCOPED_TRACE(field);
    fs::remove(journal());
    fs::remove(batches());
    inEarlierLaunch([&] {
      launch();
      record("Saved");
      save();
      fs::remove(batches());
      record("Damaged");
    });
    std::string bytes = readAll(journal());
    bytes[bytes.find("Damaged") - 5 - sizeof(journal::Record) + field] ^= 1;
    writeAll(journal(), bytes);
    inEarlierLaunch([&] { launch(); });
    ASSERT_THAT(savedNames(), ElementsAre(ElementsAre("Damaged")));
    const Dictionary event = *savedBatch(0).objectForKey("events").asArray()->back().asDictionary();
    EXPECT_EQ(event.objectForKey("EVENT_G_TIME"), Value("2026-11-21T10:00:00.000Z"));
  }
}

TEST_F(JournalTest, EventsThatTheOptOutListAllowedComeBack) {
  inEarlierLaunch([&] {
    launch();
    auto& analytics = ZRAnalytics::sharedInstance();
    analytics.optOutOfDataTracking(true);
    track("ListedLater");
    analytics.updateOptOutEvents({"Listed", "ListedLater", "Blocked"});
    track("Other");
    record("Listed");
    track("Blocked");
    track("Listed");
  });
  launch({{"blacklisted_events", Array{"Blocked"}}});
  EXPECT_THAT(savedNames(), ElementsAre(ElementsAre("ListedLater", "Listed", "Listed")));
}

TEST_F(JournalTest, ClearingLosesNoAllowedEventThatIsOnItsWay) {
  options_.bytes = 1;
  launch({{"event_batch_count", 100000}});
  auto& analytics = ZRAnalytics::sharedInstance();
  analytics.updateOptOutEvents({"Listed"});
  settle();
  track("Other");
  track("Listed");
  analytics.optOutOfDataTracking(true);
  for (int i = 0; i < 300; ++i) track("Listed");  // more than the journal holds
  settle();
  EXPECT_THAT(eventNames(*ZREventsHandler::sharedInstance().viewsInfoArray()), SizeIs(301));
  EXPECT_FALSE(log_->has("Journal : an event cannot be read and is lost"));
}

TEST_F(JournalTest, DamageWhileAnEventWaitsCostsThatEvent) {
  launch();
  track("Damaged");
  track("Whole");
  // A write to the file changes the mapping, too.
  const std::string bytes = readAll(journal());
  std::fstream(journal(), std::ios::in | std::ios::out).seekp(static_cast<std::streamoff>(bytes.find("Damaged")))
      << 'X';
  settle();
  EXPECT_EQ(eventNames(*ZREventsHandler::sharedInstance().viewsInfoArray()).back(), "Whole");
  EXPECT_EQ(log_->count("Journal : an event cannot be read and is lost"), 1u);
}

TEST_F(JournalTest, EventsComeBehindTheCallsBeforeThem) {
  launch();
  ZRAnalytics::sharedInstance().setUserAttributeForKey("Ada", "First");
  track("Behind");
  settle();
  const std::vector<std::string> names = eventNames(*ZREventsHandler::sharedInstance().viewsInfoArray());
  ASSERT_GE(names.size(), 2u);
  EXPECT_EQ(names[names.size() - 2], kEventNameUserAttributeAction);
  EXPECT_EQ(names.back(), "Behind");
}

TEST_F(JournalTest, SaveByHostCodeWithinASaveThatFailsReleasesNoEventOfThatSave) {
  inEarlierLaunch([&] {
    launch();
    record("Outer");
    makeSavesFail();
    log_->onMessage = [&](const std::string& message) {
      if (!message.starts_with("Batch Events plist :")) return;
      log_->onMessage = nullptr;
      fs::remove(batches());
      record("Inner");
      save();
      _exit(HasFailure() ? 1 : 0);
    };
    save();
    ADD_FAILURE() << "the save has not failed";
  });
  launch();
  EXPECT_THAT(savedNames(), ::testing::UnorderedElementsAre(ElementsAre("Outer"), ElementsAre("Inner")));
}

TEST_F(JournalTest, ExceptionBehindTheReplacementOfTheBatchFileSavesNoEventTwice) {
  launch();
  record("Once");
  static bool isReplaced = false;
  static platform::SystemCalls calls = platform::kRealSystemCalls;
  calls.renameat = [](int from, const char* name, int to, const char* other) {
    isReplaced = true;
    return ::renameat(from, name, to, other);
  };
  calls.fstatat = [](int directory, const char* name, struct stat* status, int flags) {
    if (std::exchange(isReplaced, false)) throw std::bad_alloc();
    return ::fstatat(directory, name, status, flags);
  };
  platform::setSystemCalls(&calls);
  save();
  platform::setSystemCalls(nullptr);
  save();
  EXPECT_THAT(savedNames(), ElementsAre(ElementsAre("Once")));
}

TEST_F(JournalTest, ForkedChildLeavesTheJournalToItsParent) {
  int forked[2];
  int done[2];
  ASSERT_EQ(::pipe(forked), 0);
  ASSERT_EQ(::pipe(done), 0);
  char byte = 0;
  inEarlierLaunch([&] {
    launch();
    record("Parent");
    track("Waiting");
    if (fork() == 0) {
      track("Child");
      ZREventsHandler::sharedInstance().clearEventsdata();
      settle();
      EXPECT_EQ(::write(forked[1], log_->has("Journal : an event cannot be read and is lost") ? "!" : "", 1), 1);
      // It outlives its parent.
      ::close(done[1]);
      _exit(static_cast<int>(::read(done[0], &byte, 1)));
    }
    EXPECT_EQ(::read(forked[0], &byte, 1), 1);
    EXPECT_EQ(byte, 0) << "the child takes the parent's event for lost";
  });
  launch();
  EXPECT_THAT(savedNames(), ElementsAre(ElementsAre("Parent", "Waiting")));
}

TEST_F(JournalTest, OnlyTheOwnerReadsItAndNoLinkIsFollowed) {
  const std::string other = documents("other");
  writeAll(other, "mine");
  fs::create_directories(library("ZrvData"));
  fs::create_symlink(other, journal());
  ::umask(0);
  inEarlierLaunch([&] { launch(); });
  EXPECT_EQ(readAll(other), "mine");
  EXPECT_EQ(fs::status(journal()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  fs::remove(journal());
  fs::create_hard_link(other, journal());
  inEarlierLaunch([&] { launch(); });
  EXPECT_EQ(readAll(other), "mine");
  EXPECT_EQ(fs::hard_link_count(journal()), 1u);
}

TEST_F(JournalTest, SecondProcessRunsWithoutOne) {
  launch();
  track("First");
  inEarlierLaunch([&] {
    // The core is configured already; another journal over the same file.
    makeEventJournal()->open(*std::make_unique<ZRBatchFile>(batches()));
    EXPECT_EQ(log_->messages().back(), "Journal : events are in memory only: another process keeps " + journal());
  });
  settle();
  EXPECT_THAT(savedNames(), IsEmpty());
}

}  // namespace
}  // namespace zorvane::testing
