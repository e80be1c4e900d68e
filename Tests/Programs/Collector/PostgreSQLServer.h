// A PostgreSQL server of a test's own, in a temporary folder, on a local socket. It ends with the test.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"

class PostgreSQLServer {
 public:
  // Starts it. Throws std::runtime_error.
  PostgreSQLServer();
  ~PostgreSQLServer();
  void start();
  void stop();
  // Of an empty database.
  std::string url() const;

 private:
  std::string folder_;
  std::unique_ptr<ChildProcess> server_;
};

// The database engines that tests run with: "SQLite", and "PostgreSQL" where a server is installed.
std::vector<const char*> testEngines();
inline std::string nameOfEngine(const ::testing::TestParamInfo<const char*>& engine) {
  return engine.param;
}
