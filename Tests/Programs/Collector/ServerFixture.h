// A zrcollector within the test's process, with files of its own, and requests to it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Collector/Server.h"
#include "PostgreSQLServer.h"
#include "Support/TemporaryDirectory.h"

namespace zorvane::collector {

class ServerTest : public ::testing::Test {
 protected:
  ServerTest();
  void TearDown() override { server_.reset(); }

  void start(const ConnectionLimits& limits = {});
  httplib::Client client() const;
  // The response's status, -1 if there was none. Its body is answer_.
  int post(const std::string& path, const std::string& body, const httplib::Headers& headers = {});
  int postSigned(const std::string& path, const json& body);
  json get(const std::string& path) const;
  json summary() const { return get("/api/summary"); }
  // A connection that has sent just that.
  int begin(const std::string& text) const;
  // The rows of one text, separated by "; ".
  std::string query(const char* sql) const;
  // The lines of the record.
  std::vector<json> record() const;

  // Text that cannot be compressed, the same for the same size.
  static std::string random(std::size_t size);
  // Valid bodies.
  static json report(const std::string& bid);
  static json device(const std::string& bid, const std::string& idfv);

  const platform::TemporaryDirectory folder_;
  Options options_;
  std::unique_ptr<Server> server_;
  std::string answer_;
};

// With a database of the engine that is the parameter.
class EngineTest : public ServerTest, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override;
  bool isPostgreSQL() const { return GetParam() == std::string_view("PostgreSQL"); }

 private:
  std::unique_ptr<PostgreSQLServer> postgreSQL_;
};

}  // namespace zorvane::collector
