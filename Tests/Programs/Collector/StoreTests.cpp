#include "Collector/Store.h"

#include <gtest/gtest.h>

#include <vector>

#include "Collector/Reader.h"
#include "PostgreSQLServer.h"

namespace zorvane::collector {
namespace {

AcceptedRequest report(const std::string& bid) {
  AcceptedRequest request;
  request.row.status = 200;
  request.row.headers = "{}";
  request.row.bid = bid;
  request.body = {{"viewsCount", 1}, {"viewsInfo", {{{"EVENT_ACTION", "Bought"}, {"EVENT_G_TIME", "g"}}}}};
  return request;
}

class StoreTest : public ::testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(With, StoreTest, ::testing::ValuesIn(testEngines()), nameOfEngine);

TEST_P(StoreTest, RequestsTogetherAreAllStoredOrNone) {
  std::unique_ptr<PostgreSQLServer> server;
  if (GetParam() == std::string("PostgreSQL")) server = std::make_unique<PostgreSQLServer>();
  Store store(server ? server->url() : "");
  Reader reader(store.reader());
  std::vector<AcceptedRequest> requests{report("1"), report("2"), report("1")};
  requests[1].row.receivedAt = "2026-11-21T10:00:00.000Z";
  EXPECT_EQ(store.addAcceptedTogether(requests), (std::vector<bool>{true, true, false}));
  EXPECT_EQ(store.addAcceptedTogether({}), std::vector<bool>{});
  requests = {report("3"), report("4")};
  requests[1].body["viewsInfo"][0].erase("EVENT_ACTION");  // the checks refuse it
  EXPECT_ANY_THROW(store.addAcceptedTogether(requests));
  EXPECT_EQ(reader.summary()["events"], 2);
  const json rows = json::parse(reader.list(viewNamed("requests"), Query()));
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[1]["received_at"], "2026-11-21T10:00:00.000Z");
}

}  // namespace
}  // namespace zorvane::collector
