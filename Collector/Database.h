// The database engines, their connections, prepared SQL statements and errors, over SOCI.
#pragma once

// Debian builds SOCI with Boost support, which needs Boost's headers. Not used here.
#include <soci/soci-config.h>
#undef SOCI_HAVE_BOOST
#undef SOCI_HAVE_BOOST_DATE_TIME
#include <soci/soci.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

// An absent text is NULL.
template <>
struct soci::type_conversion<std::optional<std::string>> {
  using base_type = std::string;
  static void from_base(const std::string& value, indicator state, std::optional<std::string>& text) {
    text = state == i_null ? std::nullopt : std::optional(value);
  }
  static void to_base(const std::optional<std::string>& text, std::string& value, indicator& state) {
    value = text.value_or(std::string());
    state = text ? i_ok : i_null;
  }
};

namespace zorvane::collector {

// The database's reason for a failure, in one line.
class DatabaseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  // Leaves out the statement and its values, which SOCI adds to the reason.
  explicit DatabaseError(const soci::soci_error& error);
};

// What differs between the engines. Stateless.
class Engine {
 public:
  virtual ~Engine() = default;
  // The database as messages name it: without a password.
  virtual std::string nameOf(const std::string& database) const = 0;
  // Connects, and creates the tables of Collector/Schema.h if there are none. Throws DatabaseError.
  virtual void open(soci::session& session, const std::string& database) const = 0;
  // Throws DatabaseError if the database is damaged.
  virtual void check(soci::session& session) const = 0;
  // After a failure: whether the session needs another connection.
  virtual bool isLost(soci::session& session) const = 0;
  // Called first in a transaction that writes. Throws soci::soci_error.
  virtual void beginWrites(soci::session& session) const = 0;
  // Commits a change that can be repeated for ever. Throws soci::soci_error.
  virtual void write(soci::session& session) const = 0;
  // The statement in the words of this engine. It is given in those of SQLite.
  virtual std::string sql(std::string statement) const = 0;
  // Any bytes, as a text that the engine can hold, and back.
  virtual void encode(std::string& text) const = 0;
  virtual void decode(std::string& text) const = 0;
};
// By the beginning of the name: PostgreSQL for "postgresql://" and "postgres://", else SQLite. Throws
// std::runtime_error if the program was built without PostgreSQL.
const Engine& engineOf(const std::string& database);

// A connection that threads share. Everything but the constructor needs the mutex.
struct Session : soci::session {
  // A file or a URL; empty: in memory. Throws std::runtime_error that names the database, also if it is checked and
  // damaged.
  explicit Session(const std::string& database, bool isChecked = false);
  const std::string database;
  const Engine& engine;
  std::mutex mutex;

  bool isLost() { return engine.isLost(*this); }
  // Closes the connection, if there is one, and makes another. Statements must be destroyed before. Throws
  // DatabaseError.
  void connect();
  // Runs the query, which must not write; again over another connection if the connection was lost. Throws
  // DatabaseError.
  template <typename Query>
  auto read(Query query);
};

template <typename Query>
auto Session::read(Query query) {
  for (bool isFirst = true;; isFirst = false) {
    try {
      if (!isFirst) connect();
      return query();
    } catch (const soci::soci_error& error) {
      if (!isFirst || !isLost()) throw DatabaseError(error);
    }
  }
}

// A prepared INSERT with one value per column. Not thread-safe.
template <typename... Values>
class Insert {
 public:
  // The session must outlive this. Columns are separated by ", ". The rest is what follows VALUES (...), for example
  // "ON CONFLICT DO NOTHING RETURNING id". Throws soci::soci_error.
  Insert(Session& session, std::string_view table, std::string_view columns, std::string_view rest = "");
  Insert(const Insert&) = delete;
  Insert& operator=(const Insert&) = delete;

  // Returns the new row's id if the statement ends in RETURNING id and the row was inserted. Throws soci::soci_error.
  std::optional<std::int64_t> run(Values... values);

 private:
  void encode(std::string& text) { engine_.encode(text); }
  void encode(std::optional<std::string>& text) {
    if (text) engine_.encode(*text);
  }
  void encode(std::int64_t) {}

  const Engine& engine_;
  soci::statement statement_;
  std::tuple<Values...> values_;
  std::int64_t id_ = 0;
};

// "INSERT INTO table (columns) VALUES (:column, ...) rest".
std::string insertText(std::string_view table, std::string_view columns, std::string_view rest);

template <typename... Values>
Insert<Values...>::Insert(Session& session, std::string_view table, std::string_view columns, std::string_view rest)
    : engine_(session.engine), statement_(session) {
  std::apply([this](auto&... value) { (statement_.exchange(soci::use(value)), ...); }, values_);
  if (rest.ends_with("RETURNING id")) statement_.exchange(soci::into(id_));
  statement_.alloc();
  statement_.prepare(engine_.sql(insertText(table, columns, rest)));
  statement_.define_and_bind();
}

template <typename... Values>
std::optional<std::int64_t> Insert<Values...>::run(Values... values) {
  (encode(values), ...);
  values_ = std::tuple<Values...>(std::move(values)...);
  const bool returned = statement_.execute(true);
  const std::int64_t id = id_;
  // SQLite cannot commit before every returned row has been fetched.
  while (returned && statement_.fetch()) {
  }
  return returned ? std::optional(id) : std::nullopt;
}

}  // namespace zorvane::collector
