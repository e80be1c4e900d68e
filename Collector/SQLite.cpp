#include "Collector/SQLite.h"

#include <fcntl.h>
#include <soci/sqlite3/soci-sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "Collector/Schema.h"

namespace zorvane::collector {

namespace {

constexpr int kBusyMilliseconds = 5000;
// Specific to SQLite: json_each().
constexpr const char* kAttributes = R"sql(
CREATE VIEW IF NOT EXISTS attributes AS
  SELECT events.id AS event, pair.key AS name, 'plain' AS section, pair.value AS value, pair.type AS type
  FROM events, json_each(events.raw, '$.EVENT_ATTRS') AS pair
  UNION ALL
  SELECT events.id, pair.key, part.key, pair.value, pair.type
  FROM events, json_each(events.raw, '$.EVENT_ATTRS_CUST') AS part, json_each(part.value) AS item,
       json_each(item.value) AS pair
  WHERE part.key IN ('timestamp', 'location');
)sql";
// Larger files are not checked, so that the start takes well below a second.
constexpr std::int64_t kCheckedBytes = 64 << 20;

struct Close {
  void operator()(sqlite_api::sqlite3* connection) const { sqlite_api::sqlite3_close(connection); }
};
using Connection = std::unique_ptr<sqlite_api::sqlite3, Close>;

// Resolves symbolic links in the folder, but not in the file name: SQLITE_OPEN_NOFOLLOW refuses both.
std::string withoutLinksToFolder(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  char* const resolved = ::realpath(folder.c_str(), nullptr);
  if (!resolved) return path;
  std::string result = std::string(resolved) + '/' + path.substr(slash + 1);
  std::free(resolved);
  return result;
}

// Creates the file with mode 0600; SQLite gives its log and index the same mode. Returns why it could not be created; 0
// if it is there.
int makePrivate(const std::string& path) {
  // Never open an existing file here: close() would release this process's locks on it.
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (file < 0) return errno == EEXIST ? 0 : errno;
  ::close(file);
  return 0;
}

Connection connect(const std::string& path) {
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  std::string name = ":memory:";
  int creationError = 0;
  if (!path.empty()) {
    name = withoutLinksToFolder(path);
    flags |= SQLITE_OPEN_NOFOLLOW;
    creationError = makePrivate(name);
    struct stat status;
    if (::lstat(name.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) throw DatabaseError("it is a symbolic link");
  }
  sqlite_api::sqlite3* opened = nullptr;
  const int code = sqlite_api::sqlite3_open_v2(name.c_str(), &opened, flags, nullptr);
  Connection connection(opened);
  if (code != SQLITE_OK) {
    std::string reason = opened ? sqlite_api::sqlite3_errmsg(opened) : "out of memory";
    // SQLite tries again for reading only, and then knows the second error only.
    const int error = creationError != 0 ? creationError : opened ? sqlite_api::sqlite3_system_errno(opened) : 0;
    if (error != 0) reason += std::string(": ") + std::strerror(error);
    throw DatabaseError(reason);
  }
  sqlite_api::sqlite3_busy_timeout(opened, kBusyMilliseconds);
  return connection;
}

// Runs several statements; SOCI would run only the first.
void execute(sqlite_api::sqlite3* connection, const char* script) {
  if (sqlite_api::sqlite3_exec(connection, script, nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw DatabaseError(sqlite_api::sqlite3_errmsg(connection));
  }
}

class SQLite : public Engine {
 public:
  std::string nameOf(const std::string& path) const override { return path; }
  void open(soci::session& session, const std::string& path) const override;
  void check(soci::session& session) const override;
  bool isLost(soci::session&) const override { return false; }
  void beginWrites(soci::session&) const override {}
  void write(soci::session& session) const override;
  std::string sql(std::string statement) const override { return statement; }
  void encode(std::string&) const override {}
  void decode(std::string&) const override {}
};

void SQLite::open(soci::session& session, const std::string& path) const {
  try {
    // SOCI cannot open a file with SQLITE_OPEN_NOFOLLOW, so give it a connection that is opened here.
    session.open(soci::sqlite3, ":memory:");
    auto& backend = *static_cast<soci::sqlite3_session_backend*>(session.get_backend());
    Connection(std::exchange(backend.conn_, connect(path).release()));

    int version = 0, tables = 0;
    // In this order: another zrcollector may be creating the tables, and commits them with their version.
    session << "SELECT count(*) FROM sqlite_master", soci::into(tables);
    session << "PRAGMA user_version", soci::into(version);
    if (version == 0 && tables != 0) throw DatabaseError("another program wrote it; name a new file");
    if (version != 0 && version != kSchemaVersion) {
      throw DatabaseError("another release wrote it (tables of version " + std::to_string(version) + ", not " +
                          std::to_string(kSchemaVersion) + "); name a new file");
    }
    execute(backend.conn_, "PRAGMA journal_mode = WAL");
    execute(backend.conn_, path.empty() ? "PRAGMA synchronous = OFF" : "PRAGMA synchronous = FULL");
    soci::transaction transaction(session);
    // Begin with a write: it waits for the write lock. A read that becomes a write fails at once if the file is locked.
    session << "PRAGMA user_version = " << kSchemaVersion;
    execute(backend.conn_, kSchema);
    execute(backend.conn_, kAttributes);
    transaction.commit();
  } catch (const soci::soci_error& error) {
    throw DatabaseError(error);
  }
}

void SQLite::check(soci::session& session) const {
  try {
    std::int64_t bytes = 0;
    session << "SELECT page_count * page_size FROM pragma_page_count, pragma_page_size", soci::into(bytes);
    if (bytes > kCheckedBytes) return;
    std::string found;
    session << "PRAGMA quick_check(1)", soci::into(found);
    if (found != "ok") throw DatabaseError("it is damaged; name a new file, or repair it with sqlite3's .recover");
  } catch (const soci::soci_error& error) {
    throw DatabaseError(error);
  }
}

void SQLite::write(soci::session& session) const {
  soci::transaction transaction(session);
  // SQLite writes the page of the version even if the version is the same.
  session << "PRAGMA user_version = " << kSchemaVersion;
  transaction.commit();
}

}  // namespace

const Engine& sqlite() {
  static const SQLite engine;
  return engine;
}

}  // namespace zorvane::collector
