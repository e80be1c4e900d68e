// zrcollector with --stream and --from, on a nats-server of its own.
#ifdef ZR_NATS_SERVER
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

#include "ChildProcess.h"
#include "Collector/SQLite.h"
#include "Collector/Server.h"
#include "Collector/StreamLink.h"
#include "Collector/StreamMessage.h"
#include "Support/TemporaryDirectory.h"

namespace zorvane::collector {
namespace {

json report(const std::string& bid) {
  return {{"viewsInfo", {{{"EVENT_ACTION", bid}, {"EVENT_G_TIME", "g"}, {"EVENT_L_TIME", "l"}}}},
          {"viewsCount", 1},
          {"meta", {{"bid", bid}, {"request_time", "now"}}},
          {"query_params", {{"unique_id", "device-1"}}}};
}

// Against a test that hangs.
void until(const std::function<bool()>& holds) {
  for (int left = 30'000; !holds(); --left) {
    if (left == 0) throw std::runtime_error("it never came true");
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

class StreamTest : public ::testing::Test {
 protected:
  StreamTest() { startServer(); }

  // With what it stored before, at the port that it had before.
  void startServer() {
    nats_ =
        std::make_unique<ChildProcess>(ZR_NATS_SERVER,
                                       std::vector<std::string>{"-a", "127.0.0.1", "-p", port_, "-js", "-sd",
                                                                folder_.file("js"), "--ports_file_dir", folder_.path()},
                                       folder_.file("nats.log"));
    std::string address;
    until([&] {
      for (const auto& file : std::filesystem::directory_iterator(folder_.path())) {
        if (file.path().extension() != ".ports") continue;
        std::ifstream stream(file.path());
        const json ports = json::parse(stream, nullptr, false);
        if (ports.is_object() && !ports["nats"].empty()) address = ports["nats"][0].get<std::string>();
      }
      return !address.empty();
    });
    port_ = address.substr(address.rfind(':') + 1);
    servers_ = "nats://127.0.0.1:" + port_;
  }
  void killServer() {
    link_.reset();
    nats_->send(SIGKILL);
    nats_->wait();
    for (const auto& file : std::filesystem::directory_iterator(folder_.path())) {
      if (file.path().extension() == ".ports") std::filesystem::remove(file.path());
    }
  }

  StreamLink& link() {
    if (!link_) link_ = std::make_unique<StreamLink>(servers_, true);
    return *link_;
  }
  // UINT64_MAX if the server does not say it.
  std::uint64_t messages() {
    jsStreamInfo* info = nullptr;
    if (js_GetStreamInfo(&info, link().context(), kStream, nullptr, nullptr) != NATS_OK) return UINT64_MAX;
    const std::uint64_t number = info->State.Msgs;
    jsStreamInfo_Destroy(info);
    return number;
  }
  // That were delivered, but not acknowledged.
  std::int64_t underWay() {
    jsConsumerInfo* info = nullptr;
    if (js_GetConsumerInfo(&info, link().context(), kStream, kConsumer, nullptr, nullptr) != NATS_OK) return 0;
    const std::int64_t number = info->NumAckPending;
    jsConsumerInfo_Destroy(info);
    return number;
  }
  void publish(const std::string& bid) { publish(bid, report(bid)); }
  void publish(const std::string& bid, const json& body) {
    RequestRow row;
    row.appID = "APP";
    row.status = 200;
    row.bid = bid;
    row.headers = "{}";
    row.receivedAt = "2026-11-21T10:00:00.000Z";
    makePublisher(servers_, true)->publish(row, body.dump());
  }

  Options publishing() const {
    Options options;
    options.quiet = true;
    options.stream = servers_;
    return options;
  }
  Options storing() const {
    Options options;
    options.quiet = true;
    options.from = servers_;
    options.database = database();
    return options;
  }
  std::vector<std::string> consuming() const { return {"--quiet", "--from", servers_, "--db", database()}; }
  std::string database() const { return folder_.file("collected.db"); }
  std::string query(const char* sql) const {
    Session session(database());
    std::string rows;
    for (const std::string& row : soci::rowset<std::string>(session.prepare << sql)) {
      rows += (rows.empty() ? "" : "; ") + row;
    }
    return rows;
  }
  static httplib::Result post(const Server& server, const json& body, bool isSigned = true) {
    httplib::Client client("127.0.0.1", server.port());
    client.set_read_timeout(300);
    httplib::Headers headers;
    if (isSigned) headers.emplace(kSignatureHeader, *signatureOf(body));
    return client.Post("/v1/report/APP", headers, body.dump(), "application/json");
  }
  static int get(const Server& server, const char* path) {
    return httplib::Client("127.0.0.1", server.port()).Get(path)->status;
  }

  const platform::TemporaryDirectory folder_;
  std::string servers_, port_ = "-1";
  std::unique_ptr<ChildProcess> nats_;
  std::unique_ptr<StreamLink> link_;
};

TEST_F(StreamTest, ARequestIsAcceptedOnceTheStreamHasIt) {
  Server server(publishing());
  server.start();
  EXPECT_EQ(post(server, report("b1"))->body, "{\"stored\":true}\n");
  EXPECT_EQ(messages(), 1u);
  EXPECT_EQ(post(server, report("b1"))->body, "{\"stored\":false}\n");
  EXPECT_EQ(post(server, report("b2"), false)->status, 401);
  json large = report("b3");
  std::minstd_rand random;
  for (int i = 0; i < 300'000; ++i) large["viewsInfo"][0]["EVENT_ATTRS"]["numbers"].push_back(random());
  const auto tooLarge = post(server, large);
  EXPECT_EQ(tooLarge->status, 413);
  EXPECT_NE(tooLarge->body.find("max_payload, 1048576 bytes"), std::string::npos) << tooLarge->body;
  EXPECT_EQ(messages(), 1u);
  EXPECT_EQ(get(server, "/"), 404);
  EXPECT_EQ(get(server, "/api/events"), 404);
  const std::string metrics = httplib::Client("127.0.0.1", server.port()).Get("/metrics")->body;
  for (const char* labels :
       {R"("accepted",reason="")", R"("duplicate",reason="")", R"("refused",reason="too_large")"}) {
    EXPECT_NE(metrics.find(std::string(labels) + "} 1\n"), std::string::npos) << labels;
  }
  EXPECT_NE(metrics.find("store_duration_seconds_count 2\n"), std::string::npos);
}

TEST_F(StreamTest, AFullStreamRefusesAndKeepsWhatItHas) {
  Server server(publishing());
  server.start();
  EXPECT_EQ(get(server, "/readyz"), 200);
  EXPECT_EQ(post(server, report("b1"))->status, 200);
  jsStreamInfo* info = nullptr;
  ASSERT_EQ(js_GetStreamInfo(&info, link().context(), kStream, nullptr, nullptr), NATS_OK);
  info->Config->MaxBytes = static_cast<std::int64_t>(info->State.Bytes) + 1;
  ASSERT_EQ(js_UpdateStream(nullptr, link().context(), info->Config, nullptr, nullptr), NATS_OK);
  jsStreamInfo_Destroy(info);
  EXPECT_EQ(get(server, "/readyz"), 503);
  const auto refused = post(server, report("b2"));
  EXPECT_EQ(refused->status, 503);
  EXPECT_EQ(refused->get_header_value("Retry-After"), "5");
  EXPECT_NE(refused->body.find("maximum bytes exceeded"), std::string::npos) << refused->body;
  EXPECT_EQ(messages(), 1u);
}

TEST_F(StreamTest, WithoutAStreamTheCollectorRefusesUntilItIsBack) {
  killServer();
  Server server(publishing());  // starts nevertheless
  server.start();
  const auto refused = post(server, report("b1"));
  EXPECT_EQ(refused->status, 503);
  EXPECT_EQ(refused->get_header_value("Retry-After"), "5");
  EXPECT_EQ(get(server, "/readyz"), 503);
  EXPECT_EQ(get(server, "/healthz"), 200);
  startServer();
  until([&] { return get(server, "/readyz") == 200; });
  EXPECT_EQ(post(server, report("b1"))->body, "{\"stored\":true}\n");
  killServer();
  until([&] { return get(server, "/readyz") == 503; });
  startServer();
  until([&] { return get(server, "/readyz") == 200; });
  EXPECT_EQ(post(server, report("b1"))->body, "{\"stored\":false}\n");
}

TEST_F(StreamTest, AConsumerStoresAsIfTheRequestHadComeToIt) {
  publish("b1");
  link().needStream();
  js_Publish(nullptr, link().context(), kReportSubject, "no request", 10, nullptr, nullptr);
  publish("b2");
  publish("b3", {{"viewsCount", 1}});
  Server server(storing());
  server.start();
  until([&] { return messages() == 0; });
  EXPECT_EQ(query("SELECT received_at || app_id || status || signature || bid FROM requests WHERE accepted = 1 AND "
                  "bid = 'b1'"),
            "2026-11-21T10:00:00.000ZAPP200noneb1");
  EXPECT_EQ(query("SELECT name FROM events ORDER BY name"), "b1; b2");
  EXPECT_EQ(query("SELECT service || status || error || body FROM requests WHERE accepted = 0"),
            "unknown400message 2 of the stream: it is no zlib stream of a requestno request; "
            "report400message 4 of the stream: viewsCount is 1, but viewsInfo holds 0{\"viewsCount\":1}");
  EXPECT_EQ(post(server, report("b4"))->status, 200);
  EXPECT_EQ(query("SELECT count(*) FROM batches"), "3");
}

TEST_F(StreamTest, WhatTheDatabaseDoesNotTakeStaysInTheStream) {
  Server server(storing());
  server.start();
  publish("b1");
  until([&] { return messages() == 0; });
  ::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit none{0, limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);
  publish("b2");
  httplib::Client client("127.0.0.1", server.port());
  until([&] { return client.Get("/metrics")->body.find("{result=\"failed\"} 0\n") == std::string::npos; });
  EXPECT_EQ(messages(), 1u);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  until([&] { return messages() == 0; });
  EXPECT_EQ(query("SELECT name FROM events ORDER BY name"), "b1; b2");
}

TEST_F(StreamTest, AKillBetweenCommitAndAcknowledgementStoresOnce) {
  link().needStream();
  jsConsumerConfig config;
  jsConsumerConfig_Init(&config);
  config.Durable = kConsumer;
  config.AckPolicy = js_AckExplicit;
  config.AckWait = 500'000'000;
  ASSERT_EQ(js_AddConsumer(nullptr, link().context(), kStream, &config, nullptr, nullptr), NATS_OK);
  ChildProcess first(ZR_COLLECTOR_PROGRAM, consuming());
  first.readLine();
  {
    Session session(database());
    session << "BEGIN IMMEDIATE";
    publish("b1");
    until([&] { return underWay() == 1; });
    killServer();  // so the acknowledgement reaches nobody
    session << "COMMIT";
  }
  until([&] { return query("SELECT name FROM events") == "b1"; });
  first.send(SIGKILL);
  first.wait();
  startServer();
  EXPECT_EQ(messages(), 1u);
  ChildProcess second(ZR_COLLECTOR_PROGRAM, consuming());
  second.readLine();
  until([&] { return messages() == 0; });
  EXPECT_EQ(query("SELECT name FROM events"), "b1");
  second.send(SIGTERM);
  EXPECT_EQ(second.wait(), 0);
}

TEST_F(StreamTest, WhatCameTooLateForAConsumerThatStopsGoesToAnotherOne) {
  constexpr const char* kFetch = "$JS.API.CONSUMER.MSG.NEXT.zrcollector.zrcollector-store";
  const auto listen = [&](const char* subject) {
    natsSubscription* made = nullptr;
    natsConnection_SubscribeSync(&made, link().connection(), subject);
    natsConnection_Flush(link().connection());
    return std::unique_ptr<natsSubscription, Destroy<natsSubscription_Destroy>>(made);
  };
  const auto next = [](const auto& heard) {
    natsMsg* message = nullptr;
    natsSubscription_NextMsg(&message, heard.get(), 300'000);
    return NATSMessage(message);
  };
  ChildProcess consumer(ZR_COLLECTOR_PROGRAM, consuming());
  consumer.readLine();
  const std::string inbox = natsMsg_GetReply(next(listen(kFetch)).get());
  auto heard = listen(inbox.c_str());
  Session session(database());
  session << "BEGIN IMMEDIATE";
  publish("b1");
  while (natsMsg_GetDataLength(next(heard).get()) == 0) continue;
  next(heard);  // There is no more. Now the consumer waits for the database.
  publish("b2");
  natsConnection_PublishRequestString(link().connection(), kFetch, inbox.c_str(), "");
  while (natsMsg_GetDataLength(next(heard).get()) == 0) continue;
  heard.reset();  // Only the consumer may hold the inbox when it stops.
  natsConnection_Flush(link().connection());
  consumer.send(SIGTERM);
  session << "COMMIT";
  EXPECT_EQ(consumer.wait(), 0);
  // The commit may have come before the signal.
  if (query("SELECT name FROM events WHERE name = 'b2'") == "b2") return;
  natsMsg* message = nullptr;
  EXPECT_EQ(natsConnection_RequestString(&message, link().connection(), kFetch, "", 30'000), NATS_OK);
  natsMsg_Destroy(message);
}

TEST_F(StreamTest, ConsumersShareTheWork) {
  {
    Server server(publishing());
    server.start();
    for (int i = 0; i < 200; ++i) ASSERT_EQ(post(server, report("a" + std::to_string(i)))->status, 200);
    ChildProcess first(ZR_COLLECTOR_PROGRAM, consuming());
    ASSERT_EQ(first.readLine().value_or("").substr(0, 13), "{\"listening\":");
    ChildProcess second(ZR_COLLECTOR_PROGRAM, consuming());
    ASSERT_EQ(second.readLine().value_or("").substr(0, 13), "{\"listening\":");
    for (int i = 0; i < 200; ++i) ASSERT_EQ(post(server, report("b" + std::to_string(i)))->status, 200);
    until([&] { return messages() == 0; });
    first.send(SIGTERM);
    EXPECT_EQ(first.wait(), 0);
    ASSERT_EQ(post(server, report("c"))->status, 200);
    until([&] { return messages() == 0; });
  }
  EXPECT_EQ(query("SELECT count(*) || ' ' || count(DISTINCT name) FROM events"), "401 401");
  EXPECT_EQ(query("SELECT count(*) FROM requests"), "401");
}

TEST(StreamMessage, ARequestComesOutAsItWentIn) {
  RequestRow row;
  row.service = Service::Device;
  row.appID = "My\nApp\xFF";
  row.status = 0;
  row.signature = Signature::Good;
  row.injected = "dropped";
  row.headers = R"({"Host":"a\nb"})";
  row.receivedAt = "2026-11-21T10:00:00.000Z";
  for (const std::string& body : {std::string("{\"a\": \"\n\"}"), std::string(kMaxBodyBytes, ' ')}) {
    const StreamMessage message = decodeMessage(encodeMessage(row, body));
    EXPECT_TRUE(message.body == body);
    EXPECT_EQ(message.row.bytes, body.size());
    EXPECT_EQ(message.row.service, row.service);
    EXPECT_EQ(message.row.appID, "My\nApp\uFFFD");
    EXPECT_EQ(message.row.status, row.status);
    EXPECT_EQ(message.row.signature, row.signature);
    EXPECT_EQ(message.row.injected, row.injected);
    EXPECT_EQ(message.row.headers, row.headers);
    EXPECT_EQ(message.row.receivedAt, row.receivedAt);
  }
  const std::string whole = encodeMessage(row, "{}");
  for (const std::string& broken : {std::string(), whole.substr(0, whole.size() - 1), whole + "x", "x" + whole}) {
    EXPECT_THROW(decodeMessage(broken), BadRequest) << broken.size();
  }
}

TEST(StreamMessage, TheIdentifierIsOfApplicationAndBatch) {
  RequestRow a, b;
  EXPECT_EQ(messageID(a), std::nullopt);
  a.appID = "A";
  a.bid = "BC";
  b.appID = "AB";
  b.bid = "C";
  EXPECT_NE(messageID(a), messageID(b));
  b = a;
  b.service = Service::Device;
  EXPECT_EQ(messageID(a), messageID(b));
}

}  // namespace
}  // namespace zorvane::collector
#endif
