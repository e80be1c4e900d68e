// What an opt-out or a disabling means for what is recorded, saved or being sent.
#include <cerrno>
#include <string_view>

#include "Platform/Files/SystemCalls.h"
#include "ZRAnalytics/EventManagement/EventPipelineTest.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"
#include "ZRAnalytics/ZRAnalytics.h"

namespace zorvane::testing {
namespace {

using ConsentTest = EventPipelineTest;

TEST_F(ConsentTest, WhatAnOptOutClearsDoesNotComeBack) {
  startWithSession();
  service_->hold = true;
  save({"sent"});
  Answers answers;
  flush(answers);
  settle();
  writeAll(dumpPath(), R"({"EVENT_ACTION":"dumped"})");
  events().syncToServerFromDumpFile();
  track({"recorded"});
  for (const char* name : {"on its way", "INSTALL"}) events().trackEvent(name);
  scheduler_->runOne();  // accepted
  scheduler_->runOne();
  ZRAnalytics::sharedInstance().optOutOfDataTracking(true);
  settle();
  EXPECT_EQ(currentNames(), (Names{"INSTALL"}));
  while (service_->heldCount() != 0) {
    service_->answerNext(500);
    settle();
  }
  EXPECT_EQ(answers, (Answers{{false, true}}));
  EXPECT_FALSE(std::filesystem::exists(batchPath()));

  // Events and an attribute between the clearing and the user's choice.
  ZRAnalytics::sharedInstance().optOutOfDataTracking(false);
  log_->onMessage = [this](const std::string& message) {
    if (message != "Batch Events plist deleted") return;
    log_->onMessage = nullptr;
    save({"stored", "INSTALL"});
    save({"stored"});
    track({"late"});
    ZRUserAttributesHandler::sharedHandler().setUserAttributeValueWithNameCheckStorage("late", "a", true);
    events().flushEventsInBackgroundAndResetWithCompletionBlock(false, false, nullptr);  // runs after the choice
  };
  save({"again"});
  ZRAnalytics::sharedInstance().optOutOfDataTracking(true);
  settle();
  EXPECT_EQ(savedNames(), (Batches{{"INSTALL"}}));
  EXPECT_EQ(readAll(batchPath()).find("stored"), std::string::npos) << "nor its bytes";
  for (const auto& request : service_->requests()) {
    EXPECT_EQ(request.body.description().find("stored"), std::string::npos);
  }
  EXPECT_EQ(currentNames(), (Names{"EVENT_ACTION_USER_ATTRIBUTE"})) << "allowed by its name";
  EXPECT_TRUE(ZRUserAttributesHandler::sharedHandler().getUserAttributesArray().empty());
}

TEST_F(ConsentTest, WhatWasSavedBeforeTheServiceSwitchedTrackingOffIsSent) {
  startWithSession();
  save({"before"});
  updateRemoteConfiguration({{"data_tracking_enabled", false}});
  Answers answers;
  flush(answers);
  settle();
  EXPECT_EQ(sentNames(), (Batches{{"before"}}));
}

TEST_F(ConsentTest, NothingIsSentWhileTheUsersChoiceCannotBeRead) {
  inEarlierLaunch([this] {
    startWithSession();
    ZRAnalytics::sharedInstance().optOutOfDataTracking(true);
  });
  static platform::SystemCalls failing = platform::kRealSystemCalls;
  failing.open = [](const char* path, int flags, mode_t mode) {
    if (!std::string_view(path).ends_with("core.plist")) return platform::kRealSystemCalls.open(path, flags, mode);
    errno = EMFILE;
    return -1;
  };
  platform::setSystemCalls(&failing);
  startWithSession();
  save({"not known yet"});
  Answers answers;
  flush(answers);
  settle();
  EXPECT_EQ(answers, (Answers{{false, false}}));
  platform::setSystemCalls(nullptr);
  flush(answers);
  settle();
  EXPECT_EQ(savedNames(), Batches{});
  EXPECT_TRUE(service_->requests().empty());
}

TEST_F(ConsentTest, RequestsThatAreNotSentYetFail) {
  for (const bool isSavedLate : {false, true}) {
    inEarlierLaunch([this, isSavedLate] {
      startWithSession();
      service_->isBusy = true;
      Answers answers;
      const auto saveAndFlush = [&] {
        for (const char* name : {"first", "second"}) save({name});
        writeAll(dumpPath(), R"({"EVENT_ACTION":"dumped"})");
        events().syncToServerFromDumpFile();
        flush(answers);
        settle();
      };
      if (isSavedLate) {
        save({"earlier"});
        // Between the clearing and the user's choice.
        log_->onMessage = [&](const std::string& message) {
          if (message != "Batch Events plist deleted") return;
          log_->onMessage = nullptr;
          saveAndFlush();
        };
      } else {
        saveAndFlush();
        log_->onMessage = [&](const std::string& message) {
          if (message == "Batch Events plist deleted") service_->proceed();
        };
      }
      ZRAnalytics::sharedInstance().optOutOfDataTracking(true);
      service_->proceed();
      settle();
      EXPECT_EQ(answers, (Answers{{false, true}})) << isSavedLate;
      EXPECT_EQ(service_->requests().size(), 1U) << "the registration of the choice";
      ZRAnalytics::sharedInstance().optOutOfDataTracking(false);
    });
  }
}

TEST_F(ConsentTest, DumpFileThatAnOptOutCouldNotRemoveIsNotSent) {
  startWithSession();
  writeAll(dumpPath(), R"({"EVENT_ACTION":"dumped"})");
  static platform::SystemCalls failing = platform::kRealSystemCalls;
  failing.unlinkat = [](int, const char*, int) { return -1; };
  platform::setSystemCalls(&failing);
  ZRAnalytics::sharedInstance().optOutOfDataTracking(true);
  platform::setSystemCalls(nullptr);
  settle();
  EXPECT_TRUE(std::filesystem::exists(dumpPath()));
  events().syncToServerFromDumpFile();
  settle();
  EXPECT_FALSE(std::filesystem::exists(dumpPath()));
  EXPECT_EQ(service_->requests().size(), 1U) << "the registration of the choice";
}

TEST_F(ConsentTest, WhileDroppedEventsStandInTheFileNothingIsSent) {
  startWithSession();
  service_->hold = true;
  static platform::SystemCalls failing = platform::kRealSystemCalls;
  failing.renameat = [](int, const char*, int, const char*) { return -1; };
  log_->onMessage = [this](const std::string& message) {
    if (message != "Batch Events plist deleted") return;
    log_->onMessage = nullptr;
    save({"stored", "INSTALL"});
    platform::setSystemCalls(&failing);
  };
  save({"again"});
  ZRAnalytics::sharedInstance().optOutOfDataTracking(true);
  Answers answers;
  flush(answers);
  settle();
  EXPECT_EQ(answers, (Answers{{false, false}}));
  EXPECT_EQ(savedNames(), (Batches{{"stored", "INSTALL"}}));
  platform::setSystemCalls(nullptr);
  flush(answers);
  settle();
  EXPECT_EQ(savedNames(), (Batches{{"INSTALL"}}));
}

}  // namespace
}  // namespace zorvane::testing
