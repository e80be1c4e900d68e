#include "Collector/Server.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <random>

#include "Collector/SQLite.h"
#include "PostgreSQLServer.h"

namespace zorvane::collector {
namespace {

class ServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/zrcollector-XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    directory_ = name;
    options_.database = directory_ + "/collected.db";
    options_.record = directory_ + "/record.jsonl";
    options_.quiet = true;
  }
  void TearDown() override {
    server_.reset();
    std::filesystem::remove_all(directory_);
  }

  void start(const ConnectionLimits& limits = {}) {
    server_ = std::make_unique<Server>(options_, limits);
    server_->start();
  }
  httplib::Client client() const {
    httplib::Client made("127.0.0.1", server_->port());
    made.set_keep_alive(true);
    made.set_read_timeout(300);  // a sanitizer on a busy machine
    return made;
  }
  // The response's status, -1 if there was none.
  int post(const std::string& path, const std::string& body, const httplib::Headers& headers = {}) {
    auto to = client();
    const auto result = to.Post(path, headers, body, "application/json");
    answer_ = result ? result->body : "";
    return result ? result->status : -1;
  }
  int postSigned(const std::string& path, const json& body) {
    return post(path, body.dump(), {{kSignatureHeader, signatureOf(body).value()}});
  }
  // A connection that has sent just that.
  int begin(const std::string& text) const {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(server_->port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::send(socket, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    return socket;
  }
  std::string query(const char* sql) const {
    Session session(options_.database);
    std::string rows;
    for (const std::string& row : soci::rowset<std::string>(session.prepare << session.engine.sql(sql))) {
      rows += (rows.empty() ? "" : "; ") + row;
    }
    return rows;
  }
  json get(const std::string& path) const { return json::parse(client().Get(path)->body); }
  json summary() const { return get("/api/summary"); }
  std::vector<json> record() const {
    std::vector<json> lines;
    std::ifstream file(options_.record);
    for (std::string line; std::getline(file, line);) lines.push_back(json::parse(line));
    return lines;
  }

  // Text that cannot be compressed, the same for the same size.
  static std::string random(std::size_t size) {
    std::mt19937 engine(static_cast<unsigned>(size));
    std::string text(size, ' ');
    for (char& c : text) c = static_cast<char>('a' + engine() % 26);
    return text;
  }
  static json report(const std::string& bid) {
    return {{"viewsInfo",
             {{{"EVENT_ACTION", "Bought"},
               {"EVENT_ATTRS",
                {{"b", true},
                 {"d", 2.5},
                 {"i", INT64_MAX},
                 {"l", {1, 2}},
                 {"n", nullptr},
                 {"s", "it's"},
                 {"u", UINT64_MAX}}},
               {"EVENT_ATTRS_CUST", {{"timestamp", {{{"t", 1.5}}, {{"t", 2}}}}, {"location", {{{"p", "1.0,2.0"}}}}}},
               {"EVENT_G_TIME", "g"},
               {"EVENT_L_TIME", "l"},
               {"N_I_E", 1}},
              {{"EVENT_ACTION", "Left"}, {"EVENT_G_TIME", "g2"}, {"EVENT_L_TIME", "l2"}}}},
            {"viewsCount", 2},
            {"identifiers", {{"zrv_user_id", 42}, {"segment_id", "seg"}}},
            {"meta",
             {{"bid", bid},
              {"request_time", "now"},
              {"session", {{"session_id", "S1"}, {"start_time", "then"}}},
              {"source", {{{"source", "mail"}, {"extras", {{"x", 1}}}}, {{"source", "ad"}}}}}},
            {"query_params", {{"unique_id", "device-1"}}}};
  }
  static json device(const std::string& bid, const std::string& idfv) {
    return {{"IDFV", idfv},
            {"meta", {{"dev_pref", {{"push_p", true}}}, {"request_time", "now"}, {"bid", bid}}},
            {"query_params", {{"unique_id", "device-1"}}}};
  }

  std::string directory_;
  Options options_;
  std::unique_ptr<Server> server_;
  std::string answer_;
};

class EngineTest : public ServerTest, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    if (!isPostgreSQL()) return;
    postgreSQL_ = std::make_unique<PostgreSQLServer>();
    options_.database = postgreSQL_->url();
  }
  bool isPostgreSQL() const { return GetParam() == std::string_view("PostgreSQL"); }

  std::unique_ptr<PostgreSQLServer> postgreSQL_;
};
INSTANTIATE_TEST_SUITE_P(With, EngineTest, ::testing::ValuesIn(testEngines()), nameOfEngine);

TEST_P(EngineTest, AReportStandsInEveryTableAndOnce) {
  start();
  EXPECT_EQ(postSigned("/v1/report/My%0AApp", report("1-A")), 200);
  EXPECT_EQ(json::parse(answer_)["stored"], true);
  EXPECT_EQ(postSigned("/v1/report/My%0AApp", report("1-B")), 200);
  EXPECT_EQ(postSigned("/v1/report/My%0AApp", report("1-A")), 200);
  EXPECT_EQ(json::parse(answer_)["stored"], false);

  EXPECT_EQ(query("SELECT bid || ' ' || app_id || ' ' || request_time || ' ' || session_id || ' ' || start_time || ' ' "
                  "|| user_id || ' ' || segment_id || ' ' || unique_id FROM batches ORDER BY id"),
            "1-A My\nApp now S1 then 42 seg device-1; 1-B My\nApp now S1 then 42 seg device-1");
  EXPECT_EQ(query("SELECT id || name || module || gmt_time FROM events WHERE batch = 1 ORDER BY id"),
            "1000001Bought0g; 1000002Left0g2");
  EXPECT_EQ(json::parse(query("SELECT raw FROM events WHERE id = 1000001")), report("1-A")["viewsInfo"][0]);
  EXPECT_EQ(query("SELECT name || ' ' || section || ' ' || type || ' ' || coalesce(value, '-') FROM attributes "
                  "WHERE event = 1000001"),
            "b plain true 1; d plain real 2.5; i plain integer 9223372036854775807; l plain array [1,2]; "
            "n plain null -; s plain text it's; u plain integer " +
                std::string(isPostgreSQL() ? "18446744073709551615" : "1.84467440737096e+19") +
                "; p location text 1.0,2.0; t timestamp real 1.5; t timestamp integer 2");
  EXPECT_EQ(query("SELECT user_id || unique_id || session_id || first_batch || last_batch || batches || events FROM "
                  "visits"),
            "42device-1S11224");
  EXPECT_EQ(
      query("SELECT kind || ' ' || name || ' ' || sum(number) FROM arrivals GROUP BY kind, name ORDER BY kind, name"),
      "duplicate  1; event Bought 2; event Left 2");
  EXPECT_EQ(query("SELECT session_id || start_time || first_batch FROM sessions"), "S1then1");
  EXPECT_EQ(query("SELECT source || coalesce(extras, '') FROM sources ORDER BY id"), "mail{\"x\":1}; ad");
  EXPECT_EQ(summary(), json::parse(R"({"requests": {"200": 3}, "batches": 2, "events": 4, "sessions": 1, "sources": 2,
      "devices": 0, "users": 1, "refused": 0, "signatures_checked": 3, "signatures_bad": 0, "duplicates": 1})"));
}

TEST_P(EngineTest, TextsOfAnyKindAreKept) {
  start();
  json body = report(std::string("nul\0a", 5));
  body["viewsInfo"][0]["EVENT_ATTRS"] = {{std::string("\0", 1), std::string("\\u0000\0\1", 8)}};
  body["meta"]["source"][0]["source_url"] = random(100'000);
  EXPECT_EQ(postSigned("/v1/report/%FF", body), 200);
  EXPECT_EQ(query("SELECT count(*) || '' FROM attributes WHERE section = 'plain'"), "1");
  const std::string users[] = {random(5000), std::string("a\0", 2), std::string("a\1", 2), "a\0010", "a", "\xc3\x84"};
  for (const std::string& user : users) {
    body["meta"]["bid"] = std::string("nul\0", 4) + std::to_string(&user - users) + random(5000);
    body["identifiers"]["zrv_user_id"] = user;
    EXPECT_EQ(postSigned("/v1/report/" + random(2000), body), 200);
    EXPECT_EQ(json::parse(answer_)["stored"], true) << user.size();
    const json rows = get("/api/requests?user=" + httplib::detail::encode_query_param(user));
    ASSERT_EQ(rows.size(), 1u) << user.size();
    EXPECT_EQ(rows[0]["bid"], body["meta"]["bid"]);
    EXPECT_EQ(rows[0]["user_id"].get<std::string>().substr(0, 100), user.substr(0, 100));
  }
  EXPECT_EQ(get("/api/users?q=%C3%A4"), json::array()) << "the case of other letters matters";
  EXPECT_EQ(get("/api/events?limit=1&name=Bought")[0]["record"], body["viewsInfo"][0]);
  EXPECT_EQ(post("/v1/report/\xff", std::string("\0\1\xff", 3)), 400);
  EXPECT_EQ(get("/api/requests/" + std::to_string(get("/api/requests")[0]["id"].get<int>()))["request"]["body"],
            std::string("\0\1\xef\xbf\xbd", 5));
}

TEST_P(EngineTest, ADeviceIsItsLastRegistration) {
  start();
  EXPECT_EQ(postSigned("/v1/device/APP", device("b1", "old")), 200);
  EXPECT_EQ(postSigned("/v1/device/APP", device("b2", "new")), 200);
  EXPECT_EQ(postSigned("/v1/device/APP", device("b1", "old")), 200);
  EXPECT_EQ(postSigned("/v1/device/OTHER", device("b3", "x")), 200);
  EXPECT_EQ(query("SELECT app_id || idfv || bid || registrations FROM devices ORDER BY app_id"),
            "APPnewb22; OTHERxb31");
  EXPECT_EQ(summary()["duplicates"], 1);
}

TEST_P(EngineTest, TheListsShowWhatWasReceived) {
  start();
  EXPECT_EQ(get("/api/users"), json::array());
  json other = report("1-B");
  other.erase("identifiers");
  other["meta"]["session"]["session_id"] = "<b>S2";
  EXPECT_EQ(postSigned("/v1/report/APP", report("1-A")), 200);
  EXPECT_EQ(postSigned("/v1/report/APP", other), 200);
  EXPECT_EQ(postSigned("/v1/report/APP", report("1-C")), 200);
  json registration = device("b1", "V");
  registration["ADVERTISING_IDENTIFIER"] = "AD";
  EXPECT_EQ(postSigned("/v1/device/APP", registration), 200);

  const auto rows = [this](const std::string& list) {
    json found = get("/api/" + list);
    for (json& row : found) row.erase("received_at");
    return found;
  };
  EXPECT_EQ(rows("users"), json::parse(R"([
      {"id": 3, "app_id": "APP", "user_id": "42", "segment_id": "seg", "devices": 1, "sessions": 1, "batches": 2,
       "events": 4, "first_batch": "now", "last_batch": "now"},
      {"id": 2, "app_id": "APP", "user_id": null, "segment_id": null, "devices": 1, "sessions": 1, "batches": 1,
       "events": 2, "first_batch": "now", "last_batch": "now"}])"));
  EXPECT_EQ(rows("devices"), json::parse(R"([{"id": 4, "app_id": "APP", "unique_id": "device-1", "user_id": "42",
      "idfv": "V", "advertising_id": "AD", "preferences": {"push_p": true}, "query_params": {"unique_id": "device-1"},
      "registrations": 1, "request_time": "now", "batches": 3, "events": 6}])"));
  EXPECT_EQ(rows("sessions").at(0).at("session_id"), "<b>S2");
  EXPECT_EQ(rows("sessions").at(1).at("sources"), "mail / -, ad / -");
  EXPECT_EQ(rows("sources").size(), 4u);
  EXPECT_EQ(rows("batches").at(0).at("bid"), "1-C");
  EXPECT_EQ(rows("requests").at(0).at("service"), "device");
  EXPECT_EQ(rows("events").at(5),
            json::parse(R"({"id": 1000001, "name": "Bought", "kind": "own", "app_id": "APP",
      "user_id": "42", "session_id": "S1", "unique_id": "device-1", "gmt_time": "g", "request_time": "now", "batch": 1})")
                .patch({{{"op", "add"}, {"path", "/record"}, {"value", report("")["viewsInfo"][0]}}}));
  EXPECT_EQ(get("/api/names"), json::parse(R"([{"name": "Bought", "events": 3, "kind": "own"},
                                              {"name": "Left", "events": 3, "kind": "own"}])"));
  EXPECT_EQ(get("/api/arrivals")["arrivals"].size(), 2u);
  const json found = get("/api/events/2000001");
  EXPECT_EQ(found["event"]["name"], "Bought");
  EXPECT_EQ(found["request"]["headers"][kSignatureHeader], *signatureOf(other));
  EXPECT_EQ(found["request"]["signature"], "good");
  EXPECT_EQ(found["session"]["session_id"], "<b>S2");
  EXPECT_EQ(found["sources"].size(), 2u);
  EXPECT_EQ(found["device"]["idfv"], "V");
  EXPECT_EQ(client().Get("/api/events/5")->status, 404);
  EXPECT_EQ(get("/api/colours"), json::parse(R"({"error": "no such path: /api/colours"})"));
}

TEST_P(EngineTest, ListsTakeFiltersAndNothingElse) {
  start();
  json other = report("1-B");
  other["identifiers"]["zrv_user_id"] = "a%b";
  other["meta"]["session"]["session_id"] = "S2";
  other["query_params"]["unique_id"] = "device-2";
  other["viewsInfo"][1]["EVENT_ACTION"] = "INSTALL";
  json nobody = report("1-C");
  nobody.erase("identifiers");
  nobody["viewsInfo"][0]["EVENT_ATTRS"]["s"] = "say \"50% off\"";
  for (const json& body : {report("1-A"), other, nobody}) EXPECT_EQ(postSigned("/v1/report/APP", body), 200);
  EXPECT_EQ(post("/v1/report/APP", report("1-D").dump()), 401);

  const std::pair<const char*, std::vector<std::int64_t>> cases[] = {
      {"events", {3000002, 3000001, 2000002, 2000001, 1000002, 1000001}},
      {"events?limit=2", {3000002, 3000001}},
      {"events?order=asc&limit=2", {1000001, 1000002}},
      {"events?order=asc&after=1000002&limit=1", {2000001}},
      {"events?before=2000001", {1000002, 1000001}},
      {"events?name=Left", {3000002, 1000002}},
      {"events?name=left", {}},
      {"events?kind=module", {2000002}},
      {"events?kind=own&before=3000000", {2000001, 1000002, 1000001}},
      {"events?user=42", {1000002, 1000001}},
      {"events?user=", {3000002, 3000001}},
      {"events?user=a%25b&name=Bought", {2000001}},
      {"events?session=S2", {2000002, 2000001}},
      {"events?session=S1&before=3000002&order=asc", {1000001, 1000002, 3000001}},
      {"events?device=device-2&after=2000001", {2000002}},
      {"events?device=device-1&user=42&name=Left", {1000002}},
      {"events?app=OTHER", {}},
      {"events?q=A%25b", {2000002, 2000001}},
      {"events?q=say%20%2250%25%20o", {3000001}},
      {"events?q=%25", {3000001, 2000002, 2000001}},
      {"events?status=refused", {4000000}},
      {"events?status=401&name=Left&user=42&q=REQUEST-id", {4000000}},
      {"events?status=400", {}},
      {"events?status=200&limit=1", {3000002}},
      {"requests?status=0", {}},
      {"events?status=any&after=3000001", {4000000, 3000002}},
      {"events?status=any&kind=module", {2000002}},
      {"events?status=any&before=4000000&limit=1", {3000002}},
      {"events?status=any&order=asc&after=4000000", {}},
      {"requests?status=accepted&before=3", {2, 1}},
      {"requests?status=refused", {4}},
      {"requests?device=device-2", {2}},
      {"batches?session=S1", {3, 1}},
      {"sessions?user=a%25b", {2}},
      {"sessions?device=device-1&q=s1", {1}},
      {"sources?session=S2&q=MAIL", {3}},
      {"users?user=", {3}},
      {"users?device=device-2", {2}},
      {"devices?user=42", {}},
  };
  for (const auto& [list, ids] : cases) {
    std::vector<std::int64_t> found;
    for (const json& row : get(std::string("/api/") + list)) found.push_back(row["id"]);
    EXPECT_EQ(found, ids) << list;
  }
  const std::pair<const char*, const char*> refused[] = {
      {"events?colour=red", "unknown parameter colour"},
      {"users?name=Left", "unknown parameter name"},
      {"events?limit=all", "limit must be a whole number from 0 on"},
      {"events?limit=10001", "limit must be at most 10000"},
      {"events?after=-1", "after must be a whole number from 0 on"},
      {"events?before=", "before must be a whole number from 0 on"},
      {"events?order=up", "order must be one of asc, desc"},
      {"events?kind=theirs", "kind must be one of own, module"},
      {"events?name=a&name=b", "name is given twice"},
      {"requests?status=4011",
       "status must be one of accepted, refused, duplicate, any, or a status from 100 to 599, or 0 (no response)"},
      {"events?status=duplicate",
       "status must be one of accepted, refused, any, or a status from 100 to 599, or 0 (no response)"},
      {"events?status=999",
       "status must be one of accepted, refused, any, or a status from 100 to 599, or 0 (no response)"},
      {"events?q=%zz", "the address has a % that two hexadecimal digits do not follow"},
      {"names?%4", "the address has a % that two hexadecimal digits do not follow"},
      {"events?q=%ff", "q is not UTF-8"},
      {"arrivals?by=second", "by must be one of minute, hour, day"},
      {"summary?x=1", "unknown parameter x"},
  };
  for (const auto& [list, reason] : refused) {
    const auto answer = client().Get(std::string("/api/") + list);
    EXPECT_EQ(answer->status, 400) << list;
    EXPECT_EQ(json::parse(answer->body)["error"], reason) << list;
  }
}

TEST_P(EngineTest, RefusedRequestsAreCountedAndLeaveNothingElse) {
  start();
  json unsignedBody = report("1-A");
  unsignedBody.erase("meta");
  unsignedBody.erase("query_params");
  EXPECT_EQ(post("/v1/report/A", unsignedBody.dump()), 200);
  EXPECT_EQ(post("/v1/report/A", unsignedBody.dump()), 200);  // without a bid, duplicates are not recognised
  EXPECT_EQ(post("/v1/report/A", report("1-A").dump()), 401);
  EXPECT_EQ(post("/v1/report/A", report("1-A").dump(), {{kSignatureHeader, "ABC"}}), 401);
  EXPECT_EQ(post("/v1/report/A", "\xff{"), 400);
  EXPECT_EQ(json::parse(answer_)["error"].get<std::string>().substr(0, 9), "not JSON:");
  EXPECT_EQ(postSigned("/v1/device/A", report("1-A")), 400);
  EXPECT_EQ(json::parse(answer_)["error"], "meta.dev_pref is missing");
  EXPECT_EQ(post("/v1/report/", "{}"), 404);
  EXPECT_EQ(post("/v1/report/" + std::string(8000, 'a'), "{}"), 400);
  const auto put = client().Put("/v1/report/A", "{}", "application/json");
  EXPECT_EQ(put->status, 405);
  EXPECT_EQ(put->get_header_value("Allow"), "POST");
  EXPECT_EQ(json::parse(put->body)["error"], "PUT is not allowed for /v1/report/A");
  EXPECT_EQ(summary()["requests"], json::parse(R"({"200": 2, "400": 3, "401": 2, "404": 1})"));
  EXPECT_EQ(query("SELECT signature || ' ' || expected || ' ' || user_id || events || names FROM requests WHERE "
                  "status = 401 AND signature = 'wrong'"),
            "wrong " + *signatureOf(report("1-A")) + " 422[\"Bought\",\"Left\"]");
  EXPECT_EQ(query("SELECT body FROM requests WHERE error LIKE 'not JSON%'"), "\xef\xbf\xbd{");
  EXPECT_EQ(summary()["signatures_checked"], 2);
  EXPECT_EQ(summary()["signatures_bad"], 2);
  EXPECT_EQ(summary()["batches"], 2);
  EXPECT_EQ(summary()["users"], 1);
}

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
  for (const auto& entry : std::filesystem::directory_iterator(directory_)) {
    EXPECT_EQ(static_cast<int>(permissionsOf(entry.path())), 0600) << entry.path();
    ++files;
  }
  EXPECT_EQ(files, 4) << "database, log and index of the log, record";
  server_.reset();

  std::filesystem::create_symlink(directory_ + "/elsewhere", directory_ + "/link");
  options_.record = directory_ + "/link";
  EXPECT_THROW(start(), std::runtime_error);
  options_.record.clear();
  options_.database = directory_ + "/link";
  EXPECT_THROW(start(), std::runtime_error);
  EXPECT_FALSE(std::filesystem::exists(directory_ + "/elsewhere"));
  // Links to the folder are followed.
  std::filesystem::create_directory(directory_ + "/folder");
  std::filesystem::create_directory_symlink(directory_ + "/folder", directory_ + "/way");
  options_.database = directory_ + "/way/collected.db";
  start();
  EXPECT_TRUE(std::filesystem::exists(directory_ + "/folder/collected.db"));
}

TEST_P(EngineTest, FaultsComeWhereTheyWereAskedFor) {
  options_.failEvery = 3;
  options_.dropEvery = 2;
  start();
  const auto send = [this](const char* bid) { return postSigned("/v1/report/A", report(bid)); };
  // The third is failed; of the others, the second and the fourth are dropped.
  EXPECT_EQ(send("1"), 200);
  EXPECT_EQ(send("2"), -1);
  EXPECT_EQ(send("3"), 503);
  EXPECT_EQ(send("2"), 200);
  EXPECT_EQ(send("5"), -1);
  EXPECT_EQ(query("SELECT group_concat(bid, ' ') FROM batches"), "1 2 5");
  EXPECT_EQ(query("SELECT bid || injected FROM requests WHERE injected IS NOT NULL"), "2dropped; 3failed; 5dropped");
  EXPECT_EQ(summary()["requests"], json::parse(R"({"0": 2, "200": 2, "503": 1})"));
  EXPECT_NE(client()
                .Get("/metrics")
                ->body.find("{fault=\"failed\"} 1\nzrcollector_injected_faults_total{fault=\"dropped\"} 2\n"),
            std::string::npos);
  EXPECT_EQ(summary()["duplicates"], 1);
  EXPECT_EQ(record()[1]["status"], 0);
}

TEST_P(EngineTest, ClientsAtTheSameTimeLoseNothing) {
  start();
  std::vector<std::future<int>> clients;
  for (int c = 0; c < 8; ++c) {
    clients.push_back(std::async(std::launch::async, [this, c] {
      auto to = client();
      int good = 0;
      for (int i = 0; i < 20; ++i) {
        const json body = report("bid-" + std::to_string((c / 2) * 20 + i));  // sent by two clients each
        const auto result =
            to.Post("/v1/report/A", {{kSignatureHeader, *signatureOf(body)}}, body.dump(), "application/json");
        good += result && result->status == 200;
      }
      return good;
    }));
  }
  for (auto& each : clients) EXPECT_EQ(each.get(), 20);
  EXPECT_EQ(summary()["batches"], 80);
  EXPECT_EQ(summary()["events"], 160);
  EXPECT_EQ(summary()["duplicates"], 80);
  EXPECT_EQ(record().size(), 163u);
  server_.reset();  // with connections still open
  start();
  EXPECT_EQ(summary()["batches"], 80);
}

}  // namespace
}  // namespace zorvane::collector
