// SQLite's C interface with owners and exceptions.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zorvane::collector {

// A failed call, with SQLite's reason.
class DatabaseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One prepared statement. Reused: bind, then run or step; a statement that was run is ready for the next use.
class Statement {
 public:
  Statement(sqlite3* database, std::string_view sql);

  // Parameters count from 1. What is not bound is what it was bound to before; at first NULL.
  Statement& bind(int index, std::int64_t value);
  Statement& bind(int index, double value);
  Statement& bind(int index, std::string_view text);
  Statement& bind(int index, const std::string& text) { return bind(index, std::string_view(text)); }
  Statement& bind(int index, const char* text) { return bind(index, std::string_view(text)); }
  Statement& bind(int index, const std::optional<std::string>& text);
  Statement& bindNull(int index);

  // To the end, rows dropped.
  void run();
  // True while there is a row; after the last the statement is ready for the next use.
  bool step();
  std::int64_t integer(int column) const { return sqlite3_column_int64(statement_.get(), column); }
  std::string text(int column) const;
  // The column's type as SQLite counts them (SQLITE_INTEGER and so on), and its name.
  int type(int column) const { return sqlite3_column_type(statement_.get(), column); }
  const char* name(int column) const { return sqlite3_column_name(statement_.get(), column); }
  int columns() const { return sqlite3_column_count(statement_.get()); }

 private:
  void check(int code, int expected) const;

  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// One connection. Not thread-safe.
class Database {
 public:
  // An empty path: in memory. A file is made with mode 0600 when absent; a link in its place is refused.
  explicit Database(const std::string& path);

  sqlite3* get() const { return database_.get(); }
  void execute(const char* sql);
  std::int64_t lastRowID() const { return sqlite3_last_insert_rowid(database_.get()); }

 private:
  struct Close {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
  };
  std::unique_ptr<sqlite3, Close> database_;
};

// Rolled back unless committed.
class Transaction {
 public:
  explicit Transaction(Database& database);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void commit();

 private:
  Database& database_;
  bool open_ = true;
};

}  // namespace zorvane::collector
