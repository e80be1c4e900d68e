#include <fstream>
#include <iterator>
#include <regex>

#include "Platform/Files/FileSystem.h"
#include "Support/ModuleTest.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"

namespace zorvane::testing {
namespace {

class SessionTest : public ModuleTest {
 protected:
  static ZRSessionManager& manager() { return ZRSessionManager::sharedSessionManager(); }
  // "(null)" without a session.
  static std::string sessionID() {
    return manager().getCurrentSessionInfoDict().value_or(Dictionary()).objectForKey("session_id").description();
  }
  static ZRSourceArray sourcesOf(std::initializer_list<const char*> names) {
    ZRSourceArray sources;
    for (const char* name : names)
      sources.push_back(ZRSource::initSourceWithSourceInfoDict(Dictionary{{"source", name}}));
    return sources;
  }
  static int completionsOfEvent(const ZRProperties* properties) {
    int completions = 0;
    manager().checkSessionForEventWithPropertiesWithCompletionBlock("event", properties, [&] { ++completions; });
    return completions;
  }
  // The session in the file; null without a readable file.
  std::shared_ptr<ZRSession> savedSession() {
    settle();
    const std::string_view classes[] = {"ZRSessionInfo", "ZRSession", "ZRSource"};
    const auto root = platform::unarchiveRootObject(readAll(file()), "ZRSessionInfo", classes);
    return root ? ZRSessionInfo::initWithCoder(*root.value())->currentSession() : nullptr;
  }
  std::string savedSessionID() { return savedSession() ? savedSession()->sessionID().description() : "(null)"; }
  std::string file() const { return library("ZrvData/ZRSessionInfo"); }
};

TEST_F(SessionTest, NewSessionIsInTheFileBeforeItsFirstBatch) {
  start();
  manager().appOpenedWithSourceArray({});
  settle();
  ZREventsHandler::sharedInstance().trackEvent("a");
  scheduler_->runOne();  // accepted
  std::filesystem::remove(file());
  manager().appOpenedWithSourceArray(sourcesOf({"other"}));
  scheduler_->runOne();  // recorded
  EXPECT_FALSE(platform::fileExists(file())) << "not on this thread";
  ZREventsHandler::sharedInstance().saveCurrentBatch();
  EXPECT_TRUE(platform::fileExists(file()));
  EXPECT_EQ(savedSessionID(), sessionID());
}

TEST_F(SessionTest, NoSessionBeforeTheFirstOpening) {
  start();
  EXPECT_TRUE(manager().hasCurrentSessionExpired());
  EXPECT_EQ(log_->messages(), std::vector<std::string>{"-- Analytics -- Session Expired"});
  EXPECT_FALSE(manager().getCurrentSessionInfoDict());
  EXPECT_TRUE(manager().getCurrentSessionSourceInfoArray().empty());
  EXPECT_FALSE(manager().isCurrentSessionSourceSameAs({}));
  EXPECT_TRUE(manager().isAppInBackground()) << "until the application opens";
  manager().resetSession();
  EXPECT_FALSE(platform::fileExists(file())) << "without a session nothing is saved";

  manager().appOpenedWithSourceArray({});
  const std::string id = sessionID();
  EXPECT_EQ(id.size(), 36u);
  EXPECT_EQ(*manager().getCurrentSessionInfoDict(),
            (Dictionary{{"session_id", id}, {"start_time", "2026-11-21T10:00:00.000Z"}}));
  EXPECT_FALSE(manager().isAppInBackground());
  EXPECT_EQ(savedSessionID(), id);
  EXPECT_TRUE(log_->has("New Session(" + id + ") initiated"));
}

TEST_F(SessionTest, SessionExpiresAfterTheInactiveDuration) {
  start();
  const struct {
    std::int64_t configured;
    double after;
    bool expired;
  } cases[] = {{0, 1799, false}, {0, 1800, true}, {0, 1801, true}, {10, 9.999, false}, {10, 10, true}, {-5, 0, true}};
  for (const auto& [configured, after, expired] : cases) {
    updateRemoteConfiguration({{"s_i_d", configured}});
    manager().reinitiateSession();
    clock_->advance(after);
    EXPECT_EQ(manager().hasCurrentSessionExpired(), expired) << configured << " s, after " << after;
  }
}

TEST_F(SessionTest, ExpiryCheckLogsItsDates) {
  start({{"s_i_d", 60}});
  manager().reinitiateSession();
  const std::string id = sessionID();
  const auto check = [&](const std::string& now) {
    return "-- Analytics -- Session Expiry Check: \n Current Session(" + id +
           "), Last Interaction Time(2026-11-21 10:00:00 +0000), Last Interaction + s_i_d(2026-11-21 10:01:00 +0000), "
           "current time(2026-11-21 " +
           now + " +0000)";
  };
  log_->clear();
  manager().hasCurrentSessionExpired();
  clock_->advance(60);
  manager().hasCurrentSessionExpired();
  EXPECT_EQ(log_->messages(),
            (std::vector<std::string>{check("10:00:00"), "-- Analytics -- Current Session has not expired.",
                                      check("10:01:00"), "-- Analytics -- Session Expired"}));
}

TEST_F(SessionTest, OpeningWithoutANewSourceKeepsALiveSession) {
  start();
  manager().appOpenedWithSourceArray(sourcesOf({"a", "b"}));
  const std::string id = sessionID();
  clock_->advance(1000);
  log_->clear();
  manager().appOpenedWithSourceArray({});
  manager().appOpenedWithSourceArray(sourcesOf({"a", "other"}));  // only the first counts
  manager().appOpenedWithSourceArray({ZRSource::initSourceWithURL("shop://x?utm_source=a")});
  EXPECT_EQ(sessionID(), id);
  EXPECT_EQ(log_->count("App Opened with same Source, Session(" + id + ") will remain active"), 3u);
  clock_->advance(800);
  EXPECT_TRUE(manager().hasCurrentSessionExpired()) << "opening does not count as interaction";
  manager().appOpenedWithSourceArray({});
  EXPECT_NE(sessionID(), id);
  EXPECT_TRUE(manager().getCurrentSessionSourceInfoArray().empty());
}

TEST_F(SessionTest, OpeningWithAnotherSourceReplacesTheSession) {
  start();
  for (const auto& first : {sourcesOf({}), sourcesOf({"a"})}) {
    manager().reinitiateSession();
    if (!first.empty()) manager().updateSourcesForCurrentSession(first);
    const std::string id = sessionID();
    log_->clear();
    manager().appOpenedWithSourceArray(sourcesOf({"b", "c"}));
    EXPECT_NE(sessionID(), id);
    EXPECT_EQ(savedSessionID(), sessionID());
    EXPECT_EQ(manager().getCurrentSessionSourceInfoArray(),
              (Array{Dictionary{{"source", "b"}}, Dictionary{{"source", "c"}}}));
    EXPECT_TRUE(log_->has("App Opened with different source. Initiate New Session."));
    EXPECT_TRUE(log_->has("New Session(" + sessionID() + ") initiated"));
  }
}

TEST_F(SessionTest, SessionWithoutASourceAdoptsAURLOfItsFirstFiveSeconds) {
  start();
  const struct {
    double after;
    bool adopted;
  } cases[] = {{0, true}, {3, true}, {4.999, true}, {5, false}, {6, false}, {-60, true}};
  for (const auto& [after, adopted] : cases) {
    manager().reinitiateSession();
    const std::string id = sessionID();
    clock_->setNow(Date{clock_->now().secondsSince1970 + after});
    log_->clear();
    ZRSessionManager::processURL(URL{"shop://x?source=s"});
    EXPECT_EQ(sessionID() == id, adopted) << after;
    EXPECT_EQ(log_->has("-- Analytics -- Source Updated"), adopted) << after;
    EXPECT_EQ(log_->messages().front(), "Incoming URL : shop://x?source=s");
    EXPECT_EQ(manager().getCurrentSessionSourceInfoArray(),
              (Array{Dictionary{{"source", "s"}, {"source_url", "shop://x?source=s"}}}));
  }
}

TEST_F(SessionTest, InvalidSourcesChangeNothing) {
  start();
  manager().reinitiateSession();
  const std::string id = sessionID();
  ZRSessionManager::processURL(URL{"shop://x?foo=1"});
  manager().updateSourcesForCurrentSession(std::nullopt);
  manager().updateSourcesForCurrentSession(ZRSourceArray());
  EXPECT_EQ(sessionID(), id);
  EXPECT_TRUE(manager().getCurrentSessionSourceInfoArray().empty());
  EXPECT_TRUE(manager().isCurrentSessionSourceSameAs(std::nullopt));
  manager().resetSession();
  manager().updateSourcesForCurrentSession(std::nullopt);
  EXPECT_NE(sessionID(), "(null)") << "without a session it opens one";
  manager().appOpenedWithSourceArray({nullptr, ZRSource::initSourceWithURL("shop://x?source=s"), nullptr});
  EXPECT_EQ(manager().getCurrentSessionSourceInfoArray().size(), 1u) << "null pointers are left out";
  EXPECT_FALSE(ZRSession().updateSessionWithSources(sourcesOf({"a"}))) << "without a start time";
}

TEST_F(SessionTest, ClosedGateChangesAndLogsNothing) {
  start();
  manager();
  for (const bool account : {true, false}) {
    updateRemoteConfiguration({{"account_active", account}, {"sdk_enabled", !account}});
    manager().appOpenedWithSourceArray(sourcesOf({"a"}));
    manager().updateSourcesForCurrentSession(sourcesOf({"a"}));
    ZRSessionManager::processURL(URL{"shop://x?source=s"});
  }
  EXPECT_EQ(sessionID(), "(null)");
  EXPECT_TRUE(manager().isAppInBackground());
  EXPECT_TRUE(log_->messages().empty());
}

TEST_F(SessionTest, OnlyInteractiveEventsInTheBackgroundTouchTheSession) {
  start();
  manager().appOpenedWithSourceArray({});
  std::string id = sessionID();
  ZRProperties nonInteractive;
  nonInteractive.setNonInteractive();
  clock_->advance(1000);
  EXPECT_EQ(completionsOfEvent(nullptr), 1);  // in the foreground
  center_->post(platform::kDidEnterBackgroundNotification);
  EXPECT_TRUE(manager().isAppInBackground());

  clock_->advance(1000);
  log_->clear();
  EXPECT_EQ(completionsOfEvent(&nonInteractive), 1);
  EXPECT_TRUE(log_->messages().empty());
  EXPECT_EQ(completionsOfEvent(nullptr), 1);
  EXPECT_TRUE(log_->has("Session(" + id + ") Last Interaction Updated to 2026-11-21 10:33:20 +0000"));
  clock_->advance(1799);
  EXPECT_FALSE(manager().hasCurrentSessionExpired()) << "the event in the background prolonged it";

  clock_->advance(1);
  EXPECT_EQ(completionsOfEvent(&nonInteractive), 1);
  EXPECT_EQ(sessionID(), id);
  const ZRProperties interactive;
  EXPECT_EQ(completionsOfEvent(&interactive), 1);
  EXPECT_NE(sessionID(), id);
  EXPECT_EQ(savedSessionID(), sessionID());
  EXPECT_TRUE(savedSession()->backgroundInitiated());
  EXPECT_TRUE(log_->has("New Session Initiated: " + sessionID()));

  id = sessionID();
  center_->post(platform::kWillEnterForegroundNotification);
  EXPECT_FALSE(manager().isAppInBackground());
  clock_->advance(5000);
  log_->clear();
  EXPECT_EQ(completionsOfEvent(&interactive), 1);
  EXPECT_EQ(sessionID(), id) << "only opening looks at expiry in the foreground";
  EXPECT_TRUE(log_->messages().empty());
}

TEST_F(SessionTest, ResetAndReinitiatedSessionsAreSavedWithoutAFlush) {
  start();
  manager().appOpenedWithSourceArray({});
  ZREventsHandler::sharedInstance().trackEvent("Event");
  settle();
  manager().resetSession();
  EXPECT_EQ(savedSessionID(), "(null)");
  EXPECT_TRUE(log_->has("Session Reset"));
  manager().reinitiateSession();
  EXPECT_EQ(savedSessionID(), sessionID());
  EXPECT_TRUE(log_->has("New Session Initiated: " + sessionID()));
  settle();
  EXPECT_TRUE(service_->requests().empty());
}

TEST_F(SessionTest, SessionIsRestoredByTheNextLaunch) {
  const Array sources{
      Dictionary{{"source", "s"}, {"source_url", "shop://x?source=s&foo=1"}, {"extras", Dictionary{{"foo", "1"}}}},
      Dictionary{{"campaign_id", 42}, {"term", "t\xC3\xA4"}}};
  inEarlierLaunch([&] {
    start({{"source_extra_keys", Array{"foo"}}});
    manager().appOpenedWithSourceArray(
        {ZRSource::initSourceWithURL("shop://x?source=s&foo=1"),
         ZRSource::initSourceWithPushPayload(Dictionary{{"utm_id", 42}, {"term", "t\xC3\xA4"}})});
    writeAll(library("id"), sessionID());
    for (const auto leaving : {platform::kDidEnterBackgroundNotification, platform::kWillResignActiveNotification}) {
      clock_->advance(1500);
      center_->post(leaving);
    }
  });
  clock_->advance(3000 + 1799.5);
  start();
  EXPECT_EQ(*manager().getCurrentSessionInfoDict(),
            (Dictionary{{"session_id", readAll(library("id"))}, {"start_time", "2026-11-21T10:00:00.000Z"}}));
  EXPECT_EQ(manager().getCurrentSessionSourceInfoArray(), sources);
  EXPECT_FALSE(manager().hasCurrentSessionExpired()) << "leaving counts as interaction and is saved";
  clock_->advance(0.5);
  EXPECT_TRUE(manager().hasCurrentSessionExpired());
}

// With mutable containers and texts, shared entries and an unknown key.
std::string archiveOfAnEarlierRelease() {
  std::ifstream stream(ZR_SOURCE_DIR "/Fuzz/corpus/ModuleArchive/earlier-session.xml");
  return {std::istreambuf_iterator<char>(stream), {}};
}

TEST_F(SessionTest, FileOfAnEarlierReleaseIsRead) {
  std::filesystem::create_directory(library("ZrvData"));
  writeAll(file(), archiveOfAnEarlierRelease());
  start();
  const std::string id = "9F0B4F0C-7C52-4F6E-9A57-0E2A4C6D8E10";
  EXPECT_EQ(manager().getCurrentSessionInfoDict(),
            (Dictionary{{"session_id", id}, {"start_time", "2026-11-21T09:59:59.250Z"}}));
  EXPECT_EQ(
      manager().getCurrentSessionSourceInfoArray(),
      (Array{Dictionary{{"source", "news & more"}, {"campaign_id", 42}, {"extras", Dictionary{{id, "news & more"}}}}}));
  clock_->advance(1799);
  EXPECT_FALSE(manager().hasCurrentSessionExpired());

  manager().saveSessionInfo();
  const auto session = savedSession();
  ASSERT_TRUE(session);
  EXPECT_TRUE(session->backgroundInitiated());
  EXPECT_EQ(session->sessionStartTime(), Date{kStart - 0.75});
  EXPECT_EQ(session->sessionLastInteractionTime(), Date{kStart});
}

struct Unspeakable final : Object {
  std::string description() const override { throw std::runtime_error("unspeakable"); }
};

TEST_F(SessionTest, HostObjectThatThrowsCostsItselfAndNotTheSession) {
  start({{"source_extra_keys", Array{"odd", "sku"}}});
  const Dictionary info{{"source", "a"}, {"odd", std::make_shared<Unspeakable>()}, {"sku", "A1"}};
  manager().appOpenedWithSourceArray({ZRSource::initSourceWithSourceInfoDict(info)});
  const auto session = savedSession();
  ASSERT_TRUE(session);
  EXPECT_EQ(session->sessionSources().front()->extras(), Value(Dictionary{{"odd", ""}, {"sku", "A1"}}));
  EXPECT_EQ(log_->errors().size(), 1u);
}

TEST_F(SessionTest, UnreadableFileMeansNoSession) {
  const std::string archive = archiveOfAnEarlierRelease();
  const auto with = [&](const char* what, const char* by) { return std::regex_replace(archive, std::regex(what), by); };
  const std::string contents[] = {"",
                                  "garbage",
                                  archive.substr(0, archive.size() / 2),
                                  with("100000", "100001"),
                                  with("NSKeyedArchiver", "Archiver"),
                                  with("ZRSessionInfo", "ZRSource")};
  std::filesystem::create_directory(library("ZrvData"));
  for (const std::string& content : contents) {
    inEarlierLaunch([&] {
      writeAll(file(), content);
      start();
      EXPECT_FALSE(manager().getCurrentSessionInfoDict()) << content.substr(0, 200);
      manager().appOpenedWithSourceArray({});
      EXPECT_EQ(savedSessionID(), sessionID());
    });
  }
}

TEST_F(SessionTest, WithoutItsFolderTheSessionIsKeptInMemory) {
  writeAll(library("ZrvData"), "a file in the folder's place");
  start();
  manager().appOpenedWithSourceArray({});
  EXPECT_NE(sessionID(), "(null)");
  EXPECT_EQ(readAll(library("ZrvData")), "a file in the folder's place");
}

}  // namespace
}  // namespace zorvane::testing
