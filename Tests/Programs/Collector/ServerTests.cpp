// Connections, bodies, files, and who may ask.
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <utility>

#include "Collector/Recorder.h"
#include "Collector/SQLite.h"
#include "ServerFixture.h"

namespace zorvane::collector {
namespace {

TEST_F(ServerTest, OversizedBodiesAreRefusedHoweverTheyCome) {
  start();
  std::string large(kMaxBodyBytes + 1, ' ');
  EXPECT_EQ(post("/v1/report/A", large), 413);
  auto chunked = client();
  const auto result = chunked.Post(
      "/v1/report/A", {},
      [&large](std::size_t offset, httplib::DataSink& sink) {
        const std::size_t count = std::min<std::size_t>(1 << 16, large.size() - offset);
        sink.write(large.data() + offset, count);
        if (offset + count == large.size()) sink.done();
        return true;
      },
      "application/json");
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, 413);
  large = report("1-A").dump() + std::string(kMaxBodyBytes - report("1-A").dump().size(), ' ');
  EXPECT_EQ(post("/v1/report/A", large, {{kSignatureHeader, *signatureOf(report("1-A"))}}), 200);
}

TEST_F(ServerTest, ASlowClientIsCutOff) {
  ConnectionLimits limits;
  limits.request = std::chrono::milliseconds(400);
  start(limits);
  const int socket = begin("POST /v1/report/A HTTP/1.1\r\nContent-Length: 100\r\n\r\n{");
  char end = 0;
  while (::recv(socket, &end, 1, 0) > 0) {
  }
  ::close(socket);
  EXPECT_EQ(query("SELECT status FROM requests"), "400");
}

TEST_F(ServerTest, ClientsThatFinishNoRequestGiveWay) {
  ConnectionLimits limits;
  limits.idle = limits.request = limits.response = std::chrono::hours(1);
  limits.patience = std::chrono::milliseconds(20);
  start(limits);
  std::vector<int> sockets;
  for (int i = 0; i < 100; ++i) {
    for (const char* text :
         {"", "POST /v1/re", "GET / HTTP/1.1\r\n\r\n", "POST /v1/report/A HTTP/1.1\r\nContent-Length: 9\r\n\r\n{"}) {
      sockets.push_back(begin(text));
    }
  }
  auto honest = client();
  honest.set_read_timeout(std::chrono::minutes(10));
  const auto answer = honest.Get("/api/summary");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  for (const int socket : sockets) ::close(socket);
}

TEST_F(ServerTest, OpenPagesAreToldAndTakeNoPlace) {
  start();
  std::vector<int> pages;
  for (int i = 0; i < 200; ++i) pages.push_back(begin("GET /api/live HTTP/1.1\r\nHost: localhost\r\n\r\n"));
  EXPECT_EQ(postSigned("/v1/report/A", report("1-A")), 200);
  for (const int page : pages) {
    std::string got;
    char text[256];
    while (got.find("\"stored\": 1}") == got.npos) {
      const ssize_t size = ::recv(page, text, sizeof text, 0);
      ASSERT_GT(size, 0) << got;
      got.append(text, static_cast<std::size_t>(size));
    }
    EXPECT_NE(got.find("Content-Type: text/event-stream"), got.npos);
    ::close(page);
  }
}

TEST_F(ServerTest, LargeBodiesBeyondTheBoundAreAskedToComeAgain) {
  ConnectionLimits limits;
  limits.bodyBytes = 0;
  limits.bodyPatience = std::chrono::milliseconds(0);
  start(limits);
  json large = report("1-A");
  large["viewsInfo"][0]["EVENT_ATTRS"]["s"] = std::string(200'000, 's');
  EXPECT_EQ(postSigned("/v1/report/A", large), 200);
  const auto hold = [this] {
    return begin("POST /v1/report/A HTTP/1.1\r\nContent-Length: 999999\r\n\r\n" + std::string(100'000, ' '));
  };
  int socket = hold();
  auto to = client();
  auto refused = to.Post("/v1/report/A", large.dump(), "application/json");
  // Until the server has read the start of the other body.
  while (refused->status == 401) {
    ::close(std::exchange(socket, hold()));
    refused = to.Post("/v1/report/A", large.dump(), "application/json");
  }
  EXPECT_EQ(refused->status, 503);
  EXPECT_EQ(refused->get_header_value("Retry-After"), "5");
  EXPECT_EQ(postSigned("/v1/report/A", report("1-B")), 200) << "a small one";
  ::close(socket);
  while (postSigned("/v1/report/A", large) == 503) {
  }
  EXPECT_EQ(json::parse(answer_)["stored"], false);
}

TEST(BodyBudget, ABodyWaitsUntilAnotherGivesBackOrTheServerStops) {
  BodyBudget budget(10, std::chrono::hours(1));
  BodyBudget::Share first(budget), second(budget), third(budget);
  EXPECT_TRUE(first.take(8));
  EXPECT_TRUE(second.take(8)) << "one goes beyond";
  auto waiting = std::async(std::launch::async, [&] { return third.take(8); });
  second.giveBack();
  EXPECT_TRUE(waiting.get());
  waiting = std::async(std::launch::async, [&] { return second.take(8); });
  budget.close();
  EXPECT_FALSE(waiting.get());
  EXPECT_TRUE(third.take(8)) << "what has begun may end";
}

TEST_F(ServerTest, TheRecordHoldsEachRequestAsItCame) {
  start();
  const std::string spread = "{\"viewsCount\":\r\n 0.0,\n\"a\": 1, \"a\": \"\\n\"}";
  EXPECT_EQ(post("/v1/report/A?x=%20", spread, {{"X-Name", "value"}}), 400);
  EXPECT_EQ(post("/v1/device/B", "not\n\xffjson"), 400);
  const auto lines = record();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0]["method"], "POST");
  EXPECT_EQ(lines[0]["path"], "/v1/report/A?x=%20");
  EXPECT_EQ(lines[0]["headers"]["X-Name"], "value");
  EXPECT_EQ(lines[0]["body"], json::parse(spread));
  EXPECT_EQ(lines[0]["status"], 400);
  EXPECT_FALSE(lines[0]["headers"].contains("REMOTE_ADDR"));
  EXPECT_EQ(lines[1]["body"], "not\n\xef\xbf\xbdjson");
}

TEST_F(ServerTest, ARecordThatTheDiskDoesNotTakeLeavesNoPartOfALine) {
  Recorder recorder(options_.record);
  recorder.write({"POST", "/first", "{}", "{}"}, true, 200);
  ::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit full{static_cast<rlim_t>(std::filesystem::file_size(options_.record)) + 20, limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
  EXPECT_THROW(recorder.write({"POST", "/second", "{}", "{}"}, true, 200), std::runtime_error);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  recorder.write({"POST", "/third", "{}", "{}"}, true, 200);
  const auto lines = record();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1]["path"], "/third");
}

TEST_F(ServerTest, APageOfAnotherSiteGetsNothing) {
  start();
  const std::string port = ":" + std::to_string(server_->port());
  for (const std::string& host : {"127.0.0.1" + port, "localhost" + port, "10.0.2.2" + port, "[::1]" + port}) {
    EXPECT_EQ(client().Get("/api/summary", {{"Host", host}})->status, 200) << host;
    EXPECT_EQ(client().Get("/", {{"Host", host}})->get_header_value("X-Content-Type-Options"), "nosniff");
  }
  for (const std::string& host :
       {"example.com" + port, "127.0.0.1.example.com" + port, std::string("localhost.evil")}) {
    const auto answer = client().Get("/api/summary", {{"Host", host}});
    EXPECT_EQ(answer->status, 403) << host;
    EXPECT_EQ(json::parse(answer->body).size(), 1u);
  }
  const std::string host = "127.0.0.1" + port;
  EXPECT_EQ(post("/v1/report/A", "{", {{"Host", host}, {"Origin", "http://" + host}}), 400);
  for (const char* origin : {"http://example.com", "http://localhost", "null"}) {
    EXPECT_EQ(post("/v1/report/A", "{", {{"Host", host}, {"Origin", origin}}), 403) << origin;
  }
}

TEST_F(ServerTest, AFileOfAnotherReleaseIsRefused) {
  {
    soci::session session;
    sqlite().open(session, options_.database);
    session << "PRAGMA user_version = 1";
  }
  try {
    start();
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()),
              "cannot use the database " + options_.database +
                  ": another release wrote it (tables of version 1, not 2); name a new file");
  }
}

TEST_F(ServerTest, OnlyTheOwnerReadsTheFilesAndNoLinkIsFollowed) {
  const auto permissionsOf = [](const std::filesystem::path& path) {
    return std::filesystem::status(path).permissions();
  };
  const mode_t before = ::umask(0);
  start();
  EXPECT_EQ(postSigned("/v1/report/APP", report("1-A")), 200);
  ::umask(before);
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
    EXPECT_EQ(static_cast<int>(permissionsOf(entry.path())), 0600) << entry.path();
    ++files;
  }
  EXPECT_EQ(files, 4) << "database, log and index of the log, record";
  server_.reset();

  std::filesystem::create_symlink(folder_.file("elsewhere"), folder_.file("link"));
  options_.record = folder_.file("link");
  EXPECT_THROW(start(), std::runtime_error);
  options_.record.clear();
  options_.database = folder_.file("link");
  EXPECT_THROW(start(), std::runtime_error);
  EXPECT_FALSE(std::filesystem::exists(folder_.file("elsewhere")));
  // Links to the folder are followed.
  std::filesystem::create_directory(folder_.file("folder"));
  std::filesystem::create_directory_symlink(folder_.file("folder"), folder_.file("way"));
  options_.database = folder_.file("way/collected.db");
  start();
  EXPECT_TRUE(std::filesystem::exists(folder_.file("folder/collected.db")));
}

}  // namespace
}  // namespace zorvane::collector
