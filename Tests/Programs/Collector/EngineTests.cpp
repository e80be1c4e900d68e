// What is stored of requests, and the lists that the API makes of it, with each database engine.
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "ServerFixture.h"

namespace zorvane::collector {
namespace {

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
  EXPECT_EQ(post("/v1/report/A", report("5").dump()), -1) << "without a signature";
  EXPECT_EQ(query("SELECT group_concat(bid, ' ') FROM batches"), "1 2");
  EXPECT_EQ(query("SELECT bid || injected FROM requests WHERE injected IS NOT NULL"), "2dropped; 3failed; 5dropped");
  EXPECT_EQ(summary()["requests"], json::parse(R"({"0": 2, "200": 2, "503": 1})"));
  EXPECT_NE(client()
                .Get("/metrics")
                ->body.find("{fault=\"failed\"} 1\nzrcollector_injected_faults_total{fault=\"dropped\"} 2\n"),
            std::string::npos);
  EXPECT_EQ(summary()["duplicates"], 1);
  EXPECT_EQ(record()[1]["status"], 0);
  const auto namesWith = [this](const std::string& status) {
    std::string names;
    for (const json& row : get("/api/events?status=" + status)) {
      names += (row["kind"] == "refused" ? "refused" : row["name"].get<std::string>()) + " ";
    }
    return names;
  };
  EXPECT_EQ(namesWith("0"), "refused Left Bought ");
  EXPECT_EQ(namesWith("200"), "Left Bought ");
  EXPECT_EQ(namesWith("503"), "refused ");
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

TEST_P(EngineTest, SourcesWithoutASessionAreOfNoOtherRequest) {
  start();
  json ada = report("1-A");
  ada["meta"].erase("session");
  json eve = ada;
  eve["meta"]["bid"] = "1-B";
  eve["meta"].erase("source");
  eve["identifiers"]["zrv_user_id"] = "eve";
  eve["query_params"]["unique_id"] = "device-2";
  for (const json& body : {ada, eve}) EXPECT_EQ(postSigned("/v1/report/APP", body), 200);
  for (const char* list : {"user=eve", "device=device-2"}) {
    EXPECT_EQ(get(std::string("/api/sources?") + list), json::array()) << list;
  }
  EXPECT_EQ(get("/api/sources?session=").size(), 2u);
  EXPECT_EQ(get("/api/events/2000001")["sources"], json::array());
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
      {"events?limit=all", "limit must be a whole number from 0 to 10000"},
      {"events?limit=10001", "limit must be a whole number from 0 to 10000"},
      {"events?after=-1", "after must be a whole number from 0 to 9223372036853775807"},
      {"events?before=", "before must be a whole number from 0 to 9223372036853775807"},
      {"events?before=9223372036853775808", "before must be a whole number from 0 to 9223372036853775807"},
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

}  // namespace
}  // namespace zorvane::collector
