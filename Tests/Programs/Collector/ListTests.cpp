// The API's lists, with each database engine.
#include <string>
#include <utility>
#include <vector>

#include "ServerFixture.h"

namespace zorvane::collector {
namespace {

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

}  // namespace
}  // namespace zorvane::collector
