// A zrcollector within the test's process, with files of its own, and requests to it.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Collector/Server.h"
#include "PostgreSQLServer.h"
#include "Support/TemporaryDirectory.h"

namespace zorvane::collector {

class ServerTest : public ::testing::Test {
 protected:
  ServerTest() {
    options_.database = folder_.file("collected.db");
    options_.record = folder_.file("record.jsonl");
    options_.quiet = true;
  }
  void TearDown() override { server_.reset(); }

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
  // The response's status, -1 if there was none. Its body is in answer_.
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
  // The rows of a single text, separated by "; ".
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
  // Valid bodies.
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

  const platform::TemporaryDirectory folder_;
  Options options_;
  std::unique_ptr<Server> server_;
  std::string answer_;
};

// With a database of the engine that is the parameter.
class EngineTest : public ServerTest, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    if (!isPostgreSQL()) return;
    postgreSQL_ = std::make_unique<PostgreSQLServer>();
    options_.database = postgreSQL_->url();
  }
  bool isPostgreSQL() const { return GetParam() == std::string_view("PostgreSQL"); }

  std::unique_ptr<PostgreSQLServer> postgreSQL_;
};

}  // namespace zorvane::collector
