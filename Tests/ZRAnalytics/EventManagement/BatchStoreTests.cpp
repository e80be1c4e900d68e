#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <thread>

#include "Platform/Files/SystemCalls.h"
#include "Platform/Formats/PropertyList.h"
#include "ZRAnalytics/EventManagement/EventPipelineTest.h"

namespace zorvane::testing {
namespace {

class BatchStoreTest : public EventPipelineTest {
 protected:
  // A directory stands where the file should be, so that nothing can be written there, not even by root.
  static void block(const std::string& path) { std::filesystem::create_directory(path); }
  static void unblock(const std::string& path) { std::filesystem::remove_all(path); }
};

TEST_F(BatchStoreTest, SavedBatchSaysWhenAndInWhichSessionItWasMade) {
  startWithSession();
  ZRSessionManager& sessions = ZRSessionManager::sharedSessionManager();
  ZRSessionManager::processURL(URL{"app://open?utm_source=mail"});
  save({"a", "b"});
  const Dictionary file = batchFile();
  ASSERT_EQ(file.size(), 1u);
  const auto& [id, value] = *file.begin();
  const Dictionary batch = *value.asDictionary();
  EXPECT_EQ(id.view().substr(0, 14), "1795255201000-");
  EXPECT_EQ(id.size(), 14u + 36u);
  EXPECT_EQ(batch.size(), 5u);
  EXPECT_EQ(batch.objectForKey("batch_id"), Value(id));
  EXPECT_EQ(batch.objectForKey("request_time"), Value("2026-11-21T10:00:01.000Z"));
  EXPECT_EQ(batch.objectForKey("session"), Value(*sessions.getCurrentSessionInfoDict()));
  EXPECT_EQ(batch.objectForKey("source"), Value(sessions.getCurrentSessionSourceInfoArray()));
  EXPECT_EQ(sessions.getCurrentSessionSourceInfoArray().size(), 1u);
  EXPECT_EQ(namesOf(value), (Names{"a", "b"}));
  EXPECT_FALSE(events().viewsInfoArray());

  save({"c"});
  EXPECT_EQ(savedNames(), (Batches{{"a", "b"}, {"c"}}));

  sessions.resetSession();
  save({"d"});
  const Dictionary last = *(batchFile().end() - 1)->value.asDictionary();
  EXPECT_FALSE(last.contains("session"));
  EXPECT_EQ(last.objectForKey("source"), Value(Array{}));
}

TEST_F(BatchStoreTest, EmptyCurrentBatchLeavesNoFile) {
  startWithSession();
  events().saveCurrentBatch();
  EXPECT_FALSE(events().viewsInfoArray());
  track({"a"});
  events().clearEventsdata();
  events().saveCurrentBatch();
  EXPECT_EQ(events().viewsInfoArray(), Array{}) << "emptied, not taken away";
  EXPECT_FALSE(std::filesystem::exists(batchPath()));
}

TEST_F(BatchStoreTest, ValueWithoutAPlaceInAFileCostsOnlyItself) {
  startWithSession();
  const double notANumber = std::numeric_limits<double>::quiet_NaN();
  events().trackEventWithProperties(
      "odd", ZRProperties::initWithAttributes({{"list", Array{null, URL{"app://x"}, Date{kStart}, Data{{1, 255}}}},
                                               {"not a number", notANumber},
                                               {"fine", 1}}));
  save({"plain"});
  ASSERT_EQ(savedNames(), (Batches{{"odd", "plain"}}));
  Answers answers;
  flush(answers);
  settle();
  EXPECT_EQ(answers, (Answers{{true, true}}));
  ASSERT_EQ(reportedEvents().size(), 2u);
  const Dictionary attributes = *reportedEvents()[0].objectForKey("EVENT_ATTRS").asDictionary();
  EXPECT_EQ(attributes.objectForKey("list"), Value(Array{"", "app://x", "2026-11-21T10:00:00.000Z", "01ff"}));
  EXPECT_EQ(attributes.objectForKey("not a number"), Value(null));
  EXPECT_EQ(attributes.objectForKey("fine"), Value(1));
}

TEST_F(BatchStoreTest, FileThatIsNoDictionaryIsLeftAsItIs) {
  for (const std::string& content : {std::string("bplist00 not really"), platform::binaryPropertyList(Array{"a"})}) {
    inEarlierLaunch([&] {
      startWithSession();
      writeAll(batchPath(), content);
      EXPECT_FALSE(events().getBatches());
      save({"dropped"});
      EXPECT_EQ(readAll(batchPath()), content);
      EXPECT_FALSE(events().viewsInfoArray());
      Answers answers;
      flush(answers);
      settle();
      EXPECT_EQ(answers, (Answers{{true, false}}));
      EXPECT_EQ(readAll(batchPath()), content);
    });
  }
}

TEST_F(BatchStoreTest, FullDiskLosesNeitherTheFileNorTheEvents) {
  startWithSession();
  save({"old"});
  const std::string before = readAll(batchPath());
  static platform::SystemCalls full = platform::kRealSystemCalls;
  full.fsync = [](int) {
    errno = ENOSPC;
    return -1;
  };
  platform::setSystemCalls(&full);
  save({"new"});
  EXPECT_EQ(readAll(batchPath()), before);
  EXPECT_EQ(currentNames(), (Names{"new"}));
  platform::setSystemCalls(nullptr);
  events().saveCurrentBatch();
  EXPECT_EQ(savedNames(), (Batches{{"old"}, {"new"}}));
}

// A value of the host's that cannot even be asked for its text.
struct Unspeakable final : Object {
  std::string description() const override { throw std::runtime_error("unspeakable"); }
  Value plainValue() const override { throw std::runtime_error("unspeakable"); }
};

TEST_F(BatchStoreTest, HostObjectThatThrowsCostsItselfAndNotItsBatch) {
  startWithSession();
  events().trackEventWithProperties(
      "odd", ZRProperties::initWithAttributes({{"x", std::make_shared<Unspeakable>()}, {"y", 1}}));
  save({"b"});
  EXPECT_EQ(savedNames(), (Batches{{"odd", "b"}}));
  EXPECT_EQ(log_->errors().size(), 1u);
  const Value saved = batchFile().begin()->value.asDictionary()->objectForKey("events");
  EXPECT_EQ(saved.asArray()->front().asDictionary()->objectForKey("EVENT_ATTRS"),
            Value(Dictionary{{"x", ""}, {"y", 1}}));
}

// Lets another thread save while the first one is building its batch.
struct SavingMeanwhile final : Object {
  std::string description() const override { return ""; }
  Value plainValue() const override {
    other = std::thread([this] {
      ZREventsHandler::sharedInstance().saveCurrentBatch();
      isSaved = std::filesystem::exists(ZREventsHandler::sharedInstance().eventsPlistFilePath());
      isDone = true;
    });
    for (int i = 0; i < 2000 && !isDone; ++i) std::this_thread::yield();
    ZREventsHandler::sharedInstance().saveCurrentBatch();  // does not wait for itself
    return "x";
  }
  mutable std::thread other;
  mutable std::atomic<bool> isSaved{false};
  mutable std::atomic<bool> isDone{false};
};

TEST_F(BatchStoreTest, BatchThatIsTooLargeToBeDecodedIsSavedAsSeveral) {
  startWithSession();
  const Value list = Array(1'500'000, true);
  for (const char* name : {"a", "b", "c", "too large", "d"}) {
    const Value value = name == std::string_view("too large") ? Value(Array(3, list)) : list;
    events().trackEventWithProperties(name, ZRProperties::initWithAttributes({{"x", value}}));
  }
  settle();
  events().saveCurrentBatch();
  Batches saved;
  const auto batches = events().getBatches();
  for (const ZRStoredBatch& batch : *batches) saved.push_back(namesOf(batch.value()));
  EXPECT_EQ(saved, (Batches{{"a", "b"}, {"c"}, {"d"}}));
  EXPECT_TRUE(log_->has("Batch Events plist : an event is too large to be saved and is dropped"));
}

TEST_F(BatchStoreTest, SecondSaveReturnsWhenTheFirstHasStored) {
  startWithSession();
  const auto object = std::make_shared<SavingMeanwhile>();
  events().trackEventWithProperties("a", ZRProperties::initWithAttributes({{"x", object}}));
  settle();
  events().saveCurrentBatch();
  object->other.join();
  EXPECT_TRUE(object->isSaved);
}

TEST_F(BatchStoreTest, ExceptionWhileWritingAnEntryIsReportedAndLeavesTheFile) {
  startWithSession();
  save({"a"});
  const std::string before = readAll(batchPath());
  events().writeEventsToFileWithBatchID(Array{std::make_shared<Unspeakable>()}, "1-X");
  EXPECT_TRUE(hasError("writeEventsToFileWithBatchID", 708, "Exception : unspeakable"));
  EXPECT_EQ(readAll(batchPath()), before);
  events().writeEventsToFileWithBatchID(Array{Dictionary{{"EVENT_ACTION", "E"}}}, 77);
  EXPECT_EQ(namesOf(batchFile().objectForKey("77")), (Names{"E"}));
}

TEST_F(BatchStoreTest, FileChangedBehindItsBackIsReadAnew) {
  startWithSession();
  save({"a"});
  const Dictionary others{{"5-X", Dictionary{{"events", Array{Dictionary{{"EVENT_ACTION", "other"}}}}}}};
  writeAll(batchPath(), platform::binaryPropertyList(others));
  save({"b"});
  EXPECT_EQ(savedNames(), (Batches{{"other"}, {"b"}}));
  std::filesystem::remove(batchPath());
  EXPECT_EQ(events().getBatches()->size(), 0u);
}

TEST_F(BatchStoreTest, RemovingTheFileSaysHowItWent) {
  startWithSession();
  events().removeEventsPlistFile();
  EXPECT_TRUE(log_->messages().empty());
  save({"a"});
  events().removeEventsPlistFile();
  EXPECT_FALSE(std::filesystem::exists(batchPath()));
  EXPECT_TRUE(log_->has("Batch Events plist deleted"));
  block(batchPath());
  events().removeEventsPlistFile();
  ASSERT_EQ(log_->messages().size(), 2u);
  EXPECT_EQ(log_->messages()[1].rfind("Error while deleting ZorvaneBatchEvents.plist : ", 0), 0u);
}

// --- The dump file

TEST_F(BatchStoreTest, DumpFileIsReadLineByLineAndBrokenLinesAreSkipped) {
  startWithSession();
  const Dictionary one{{"n", 1}};
  const struct {
    std::string content;
    Array events;
  } cases[] = {
      {"", {}},
      {"{\"n\":1}", {one}},
      {"\xEF\xBB\xBF{\"n\":1}\n{\"n\":1}", {one, one}},
      {"{\"n\":1}\n\n{\"n\":\n", {one}},
      {"{\"n\":1}\r\n{\"n\":1}\v{\"n\":1}\f{\"n\":1}\r{\"n\":1}", Array(5, one)},
      {"{\"n\":1}\xC2\x85{\"n\":1}\xE2\x80\xA8{\"n\":1}\xE2\x80\xA9{\"n\":1}", Array(4, one)},
      {"{\"n\":\"cut\xE2\x80\xA8here\"}\n{\"n\":1}", {one}},
      {"5\n\"text\"\nnull\ntrue\n[1]\n{\"n\":1} x\n", {}},
      {"{\"n\":null}", {Dictionary{{"n", null}}}},
      {"{\"n\":1}\n\xFF", {}},
  };
  for (const auto& item : cases) {
    writeAll(dumpPath(), item.content);
    EXPECT_EQ(events().getEventsFromDumpFile(), item.events) << item.content;
  }
  std::filesystem::remove(dumpPath());
  EXPECT_TRUE(events().getEventsFromDumpFile().empty());
}

TEST_F(BatchStoreTest, EveryLineOfALargeDumpFileIsSentInOrder) {
  startWithSession();
  constexpr int kLines = 300'000;
  std::string content;
  for (int i = 0; i < kLines; ++i) {
    const std::string number = std::to_string(i);
    content += "{\"EVENT_ACTION\":\"" + number + "\",\"x\":[1,2,3,4,5,6,7,8,9,0]}\n";
  }
  writeAll(dumpPath(), content);
  events().syncToServerFromDumpFile();
  settle();
  int next = 0;
  for (const Names& names : sentNames()) {
    for (const std::string& name : names) EXPECT_EQ(name, std::to_string(next++));
  }
  EXPECT_EQ(next, kLines);

  std::filesystem::remove(dumpPath());
  writeAll(dumpPath(), "{}");
  std::filesystem::resize_file(dumpPath(), (64u << 20) + 1);
  log_->clear();
  events().syncToServerFromDumpFile();
  EXPECT_TRUE(std::filesystem::exists(dumpPath()));
  EXPECT_EQ(log_->messages(), Names{"Events dat file : cannot read " + dumpPath() + ": File too large (fstat)"});
}

constexpr char kDump[] = "{\"EVENT_ACTION\":\"a\"}\n\nbroken\n{\"EVENT_ACTION\":\"b\"}\n";

TEST_F(BatchStoreTest, DumpFileIsSentOnceAndGone) {
  startWithSession();
  writeAll(dumpPath(), kDump);
  service_->hold = true;
  events().syncToServerFromDumpFile();
  EXPECT_FALSE(std::filesystem::exists(dumpPath()));
  EXPECT_TRUE(log_->has("Report Add request initiated:"));
  ASSERT_EQ(service_->heldCount(), 1u);
  service_->answerNext(200);
  settle();
  EXPECT_EQ(sentNames(), (Batches{{"a", "b"}}));
  const auto request = service_->requests()[0];
  EXPECT_EQ(request.url, "http://service.test/v1/report/APP");
  EXPECT_EQ(request.header("ZRV-REQUEST-ID").size(), 40u);
  EXPECT_EQ(request.body.asDictionary()->objectForKey("viewsCount"), Value(2));
  const Dictionary meta = *request.body.asDictionary()->objectForKey("meta").asDictionary();
  EXPECT_EQ(meta.size(), 2u) << "no session, no source";
  EXPECT_TRUE(log_->has("sync success from data file"));
  EXPECT_TRUE(batchFile().empty());
  events().syncToServerFromDumpFile();
  EXPECT_EQ(service_->requests().size(), 1u);
}

TEST_F(BatchStoreTest, RefusedDumpFileBecomesABareArrayThatGoesWithTheNextFlush) {
  startWithSession();
  writeAll(dumpPath(), kDump);
  service_->decide = [](const auto&) { return 500; };
  events().syncToServerFromDumpFile();
  settle();
  EXPECT_TRUE(log_->has("could not complete sync from dump file, will try again later"));
  ASSERT_EQ(batchFile().size(), 1u);
  EXPECT_TRUE(batchFile().begin()->value.isArray());
  const std::string id = idOf(0);

  save({"c"});
  service_->decide = [](const auto&) { return 200; };
  Answers answers;
  flush(answers);
  settle();
  EXPECT_EQ(answers, (Answers{{true, true}}));
  EXPECT_EQ(sentNames(), (Batches{{"a", "b"}, {"a", "b"}, {"c"}}));
  const Dictionary body = *service_->requests()[1].body.asDictionary();
  EXPECT_EQ(body.objectForKey("viewsCount"), Value(2));
  EXPECT_EQ(body.objectForKey("meta"), Value(Dictionary{{"bid", id}, {"request_time", "2026-11-21T10:00:01.000Z"}}));
  EXPECT_FALSE(std::filesystem::exists(batchPath()));
}

TEST_F(BatchStoreTest, RefusedDumpFileThatCannotBeStoredJoinsTheCurrentBatch) {
  startWithSession();
  writeAll(dumpPath(), kDump);
  block(batchPath());
  track({"c"});
  service_->decide = [](const auto&) { return 500; };
  events().syncToServerFromDumpFile();
  settle();
  EXPECT_EQ(currentNames(), (Names{"a", "b", "c"}));
}

TEST_F(BatchStoreTest, DumpFileWaitsForAnIdentifierAnActiveAccountAndEvents) {
  startWithSession({}, "");
  writeAll(dumpPath(), kDump);
  events().syncToServerFromDumpFile();
  EXPECT_EQ(log_->messages(), (Names{"Reports API not called. AppID not present"}));
  updateRemoteConfiguration({{"account_active", false}});
  setAppIdentifier("APP");
  events().syncToServerFromDumpFile();
  updateRemoteConfiguration({{"account_active", true}});
  EXPECT_EQ(readAll(dumpPath()), kDump);
  writeAll(dumpPath(), "broken\n");
  events().syncToServerFromDumpFile();
  settle();
  EXPECT_TRUE(std::filesystem::exists(dumpPath()));
  EXPECT_EQ(log_->messages().size(), 1u);
  EXPECT_TRUE(service_->requests().empty());
}

TEST_F(BatchStoreTest, DumpFileIsLostWhenTheIdentifierVanishesMeanwhile) {
  startWithSession();
  writeAll(dumpPath(), kDump);
  log_->onMessage = [](const std::string& message) {
    if (message == "Report Add request initiated:") setAppIdentifier("");
  };
  events().syncToServerFromDumpFile();
  settle();
  EXPECT_EQ(log_->messages(),
            (Names{"Report Add request initiated:", "Sync Failure\u203C\uFE0F",
                   "Please initialze the SDK Config with the AppID in applicationDidFinishLaunching"}));
  EXPECT_TRUE(service_->requests().empty());
  EXPECT_FALSE(std::filesystem::exists(dumpPath()));
}

}  // namespace
}  // namespace zorvane::testing
