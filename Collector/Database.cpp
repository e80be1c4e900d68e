#include "Collector/Database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace zorvane::collector {

namespace {

// The path with the folder's links followed; SQLite would follow, or refuse, those and the file's own alike.
std::string withoutLinksToFolder(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  char* const resolved = ::realpath(folder.c_str(), nullptr);
  if (!resolved) return path;
  std::string result = std::string(resolved) + '/' + path.substr(slash + 1);
  std::free(resolved);
  return result;
}

// SQLite would let the group and others read it; the files beside it get the mode of this one.
void makePrivate(const std::string& path) {
  // Only a new file is opened: closing another would take the process's locks on it away.
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (file >= 0) ::close(file);
}

}  // namespace

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
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  std::string name = ":memory:";
  if (!path.empty()) {
    name = withoutLinksToFolder(path);
    flags |= SQLITE_OPEN_NOFOLLOW;
    makePrivate(name);
    struct stat status;
    if (::lstat(name.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) throw DatabaseError("it is a symbolic link");
  }
  sqlite3* database = nullptr;
  const int code = sqlite3_open_v2(name.c_str(), &database, flags, nullptr);
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
