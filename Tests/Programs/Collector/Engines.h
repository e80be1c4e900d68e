// The database engines that tests run with.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#ifdef ZR_POSTGRESQL_FOLDER
#include "PostgreSQLServer.h"
inline constexpr const char* kTestEngines[] = {"SQLite", "PostgreSQL"};
#else
inline constexpr const char* kTestEngines[] = {"SQLite"};
#endif

inline std::string nameOfEngine(const ::testing::TestParamInfo<const char*>& engine) {
  return engine.param;
}

class TestEngine {
 public:
  explicit TestEngine([[maybe_unused]] std::string_view engine) {
#ifdef ZR_POSTGRESQL_FOLDER
    if (engine == "PostgreSQL") server_ = std::make_unique<PostgreSQLServer>();
  }
  // An empty one: of PostgreSQL, or in memory.
  std::string database() const {
    return server_ ? server_->url() : "";
  }

 private:
  std::unique_ptr<PostgreSQLServer> server_;
#else
  }
  std::string database() const {
    return "";
  }
#endif
};
