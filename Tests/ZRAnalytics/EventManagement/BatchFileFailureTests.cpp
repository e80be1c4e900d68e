#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "Platform/Files/SystemCalls.h"
#include "Platform/Formats/PropertyList.h"
#include "ZRAnalytics/EventManagement/EventPipelineTest.h"

namespace zorvane::testing {
namespace {

class BatchFileFailureTest : public EventPipelineTest {
 protected:
  // A directory in the file's place fails each save, even of root.
  void block() const { std::filesystem::create_directory(batchPath()); }
  void unblock() const { std::filesystem::remove(batchPath()); }
  // Each flush of a full batch ends with this line while the file cannot be read.
  std::size_t flushes() const { return log_->count("All the tracked events are already synced with Zorvane :]"); }
  std::size_t reportedProblems() const {
    const auto messages = log_->messages();
    return static_cast<std::size_t>(std::count_if(messages.begin(), messages.end(), [](const std::string& message) {
      return message.starts_with("Batch Events plist : ");
    }));
  }
};

TEST_F(BatchFileFailureTest, FailedSaveIsRepeatedAfterAnotherBatchOfEventsAndLoggedOnce) {
  startWithSession({{"event_batch_count", 4}});
  block();
  track(Names(3, "E"));
  EXPECT_EQ(flushes(), 0u);
  for (int i = 0; i < 17; ++i) track({"E"});
  EXPECT_EQ(flushes(), 5u) << "with 4, 8, 12, 16 and 20 events";
  track(Names(4, "E"));
  EXPECT_EQ(flushes(), 5u) << "a quarter more than 20 events is more than 24";
  EXPECT_EQ(reportedProblems(), 1u);
  unblock();
  track({"E"});
  EXPECT_EQ(reportedEvents().size(), 25u);
  track(Names(4, "E"));
  EXPECT_EQ(reportedEvents().size(), 29u) << "the threshold is the configured one again";

  block();
  track(Names(4, "E"));
  EXPECT_EQ(reportedProblems(), 2u) << "logged again after a save that worked";
  unblock();
  events().clearEventsdata();
  track(Names(4, "E"));
  EXPECT_EQ(reportedEvents().size(), 33u) << "clearing forgets the failure";
}

TEST_F(BatchFileFailureTest, EventsOfAFailedSaveKeepTheirSession) {
  startWithSession();
  block();
  save({"a"});
  save({"b"});
  const auto first = ZRSessionManager::sharedSessionManager().getCurrentSessionInfoDict();
  ZRSessionManager::sharedSessionManager().reinitiateSession();
  save({"c"});
  track({"d"});
  EXPECT_EQ(currentNames(), (Names{"a", "b", "c", "d"}));
  unblock();
  events().saveCurrentBatch();
  EXPECT_EQ(savedNames(), (Batches{{"a", "b"}, {"c", "d"}}));
  const Dictionary saved = batchFile();
  EXPECT_EQ(saved.begin()->value.asDictionary()->objectForKey("session"), Value(first.value()));
  EXPECT_NE(saved.objectForKey(idOf(1)).asDictionary()->objectForKey("session"), Value(first.value()));
}

TEST_F(BatchFileFailureTest, BatchThatCannotBeDecodedIsKeptAndLoggedOnce) {
  startWithSession();
  save({"broken"});
  std::string file = readAll(batchPath());
  const std::string id = idOf(0);
  file[file.find("batch_id") - 1] = '\x0F';  // no marker
  writeAll(batchPath(), file);
  for (int i = 0; i < 3; ++i) {
    save({"a"});
    Answers answers;
    flush(answers);
    settle();
    EXPECT_EQ(answers, (Answers{{true, true}}));
    EXPECT_NE(readAll(batchPath()).find(id), std::string::npos);
  }
  EXPECT_EQ(sentNames(), (Batches{{"a"}, {"a"}, {"a"}}));
  EXPECT_EQ(log_->count("Batch Events plist : cannot be decoded and are kept: " + id), 1u);
}

TEST_F(BatchFileFailureTest, FileThatWouldBeTooLargeToBeReadIsNotWritten) {
  int failures = 0;
  ZRBatchFile file(
      batchPath(), [&](const std::string&) { ++failures; }, 800);
  const Value events = Array{Dictionary{{"EVENT_ACTION", std::string(400, 'x')}}};
  EXPECT_EQ(file.store({{"1-A", events}}), ZRBatchFile::Outcome::Done);
  const Value more = Array{Dictionary{{"EVENT_ACTION", std::string(400, 'y')}}};
  EXPECT_EQ(file.store({{"2-B", more}}), ZRBatchFile::Outcome::Failed);
  EXPECT_EQ(file.load()->size(), 1u);
  EXPECT_EQ(failures, 1);
}

TEST_F(BatchFileFailureTest, EntryThatIsNotABatchIsDroppedAndNeverSent) {
  startWithSession();
  const Dictionary batch{{"events", Array{Dictionary{{"EVENT_ACTION", "a"}}}}, {"batch_id", "6-B"}};
  writeAll(batchPath(), platform::binaryPropertyList(Dictionary{{"5-A", "text"}, {"6-B", batch}}));
  Answers answers;
  flush(answers);
  settle();
  EXPECT_EQ(answers, (Answers{{true, true}}));
  EXPECT_EQ(sentNames(), (Batches{{"a"}}));
  EXPECT_TRUE(log_->has("Batch Events plist : the entry 5-A is no batch and is dropped"));
  EXPECT_FALSE(std::filesystem::exists(batchPath()));
  // So is a file without any batch.
  writeAll(batchPath(), platform::binaryPropertyList(Dictionary{{"5-A", "text"}}));
  flush(answers);
  settle();
  EXPECT_FALSE(std::filesystem::exists(batchPath()));
}

TEST_F(BatchFileFailureTest, FileThatCannotBeReadAtTheEndOfASyncIsNotReplaced) {
  startWithSession();
  save({"a"});
  service_->hold = true;
  Answers answers;
  flush(answers);
  settle();
  save({"b"});
  static platform::SystemCalls failing = platform::kRealSystemCalls;
  static int failures = 0;
  failing.fstatat = [](int directory, const char* name, struct stat* status, int flags) {
    if (failures++ > 0) return ::fstatat(directory, name, status, flags);
    errno = EIO;
    return -1;
  };
  platform::setSystemCalls(&failing);
  service_->answerNext(200);
  settle();
  platform::setSystemCalls(nullptr);
  EXPECT_GT(failures, 0);
  EXPECT_EQ(savedNames(), (Batches{{"a"}, {"b"}})) << "a batch was saved meanwhile";
}

TEST_F(BatchFileFailureTest, TwoProcessesKeepEachOthersBatches) {
  std::vector<std::thread> processes;  // file locks keep two objects apart like two processes
  for (const std::string name : {"a", "b"}) {
    processes.emplace_back([this, name] {
      ZRBatchFile file(batchPath());
      for (int i = 0; i < 100; ++i) (void)file.store({{name + std::to_string(i), Array{i}}});
    });
  }
  for (std::thread& process : processes) process.join();
  EXPECT_EQ(batchFile().size(), 200u);
}

}  // namespace
}  // namespace zorvane::testing
