#include "Collector/Database.h"

namespace zorvane::collector {

Statement::Statement(sqlite3* database, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const int code = sqlite3_prepare_v3(database, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                                      &statement, nullptr);
  if (code != SQLITE_OK) throw DatabaseError(sqlite3_errmsg(database));
  statement_.reset(statement);
}

void Statement::check(int code, int expected) const {
  if (code == expected) return;
  const DatabaseError error(sqlite3_errmsg(sqlite3_db_handle(statement_.get())));
  sqlite3_reset(statement_.get());
  throw error;
}

Statement& Statement::bind(int index, std::int64_t value) {
  check(sqlite3_bind_int64(statement_.get(), index, value), SQLITE_OK);
  return *this;
}

Statement& Statement::bind(int index, double value) {
  check(sqlite3_bind_double(statement_.get(), index, value), SQLITE_OK);
  return *this;
}

Statement& Statement::bind(int index, std::string_view text) {
  // A view without storage is the empty text, not NULL.
  const char* data = text.data() ? text.data() : "";
  check(sqlite3_bind_text64(statement_.get(), index, data, text.size(), SQLITE_TRANSIENT, SQLITE_UTF8), SQLITE_OK);
  return *this;
}

Statement& Statement::bind(int index, const std::optional<std::string>& text) {
  return text ? bind(index, std::string_view(*text)) : bindNull(index);
}

Statement& Statement::bindNull(int index) {
  check(sqlite3_bind_null(statement_.get(), index), SQLITE_OK);
  return *this;
}

void Statement::run() {
  while (step()) {
  }
}

bool Statement::step() {
  const int code = sqlite3_step(statement_.get());
  if (code == SQLITE_ROW) return true;
  check(code, SQLITE_DONE);
  sqlite3_reset(statement_.get());
  return false;
}

std::string Statement::text(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  if (!text) return {};
  return std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column)));
}

Database::Database(const std::string& path) {
  sqlite3* database = nullptr;
  const int code = sqlite3_open_v2(path.empty() ? ":memory:" : path.c_str(), &database,
                                   SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  database_.reset(database);
  if (code != SQLITE_OK) throw DatabaseError(database ? sqlite3_errmsg(database) : "out of memory");
  sqlite3_busy_timeout(database, 5000);  // somebody reads or copies the file by hand
}

void Database::execute(const char* sql) {
  if (sqlite3_exec(get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) throw DatabaseError(sqlite3_errmsg(get()));
}

Transaction::Transaction(Database& database) : database_(database) {
  database_.execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  if (open_) sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  database_.execute("COMMIT");
  open_ = false;
}

}  // namespace zorvane::collector
