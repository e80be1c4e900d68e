// Prepared SQL statements and errors, over SOCI.
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

// A connection that threads share. Its statements and transactions need the mutex.
struct Session : soci::session {
  // An empty path: in memory. Throws std::runtime_error that names the file, also if it is checked and damaged.
  explicit Session(const std::string& path, bool isChecked = false);
  std::mutex mutex;
};

// A prepared INSERT with one value per column. Not thread-safe.
template <typename... Values>
class Insert {
 public:
  // The session must outlive this. Columns are separated by ", ". The rest is what follows VALUES (...), for example
  // "ON CONFLICT DO NOTHING RETURNING id". Throws soci::soci_error.
  Insert(soci::session& session, std::string_view table, std::string_view columns, std::string_view rest = "");
  Insert(const Insert&) = delete;
  Insert& operator=(const Insert&) = delete;

  // Returns the new row's id if the statement ends in RETURNING id and the row was inserted. Throws soci::soci_error.
  std::optional<std::int64_t> run(Values... values);

 private:
  soci::statement statement_;
  std::tuple<Values...> values_;
  std::int64_t id_ = 0;
};

// "INSERT INTO table (columns) VALUES (:column, ...) rest".
std::string insertText(std::string_view table, std::string_view columns, std::string_view rest);

template <typename... Values>
Insert<Values...>::Insert(soci::session& session, std::string_view table, std::string_view columns,
                          std::string_view rest)
    : statement_(session) {
  std::apply([this](auto&... value) { (statement_.exchange(soci::use(value)), ...); }, values_);
  if (rest.ends_with("RETURNING id")) statement_.exchange(soci::into(id_));
  statement_.alloc();
  statement_.prepare(insertText(table, columns, rest));
  statement_.define_and_bind();
}

template <typename... Values>
std::optional<std::int64_t> Insert<Values...>::run(Values... values) {
  values_ = std::tuple<Values...>(std::move(values)...);
  const bool returned = statement_.execute(true);
  const std::int64_t id = id_;
  // SQLite cannot commit before every returned row has been fetched.
  while (returned && statement_.fetch()) {
  }
  return returned ? std::optional(id) : std::nullopt;
}

}  // namespace zorvane::collector
