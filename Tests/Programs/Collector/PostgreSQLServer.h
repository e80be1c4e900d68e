// A PostgreSQL server of a test's own, in a temporary folder, on a local socket. It ends with the test.
#pragma once

#include <memory>
#include <string>

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
