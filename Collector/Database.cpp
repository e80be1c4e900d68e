#include "Collector/Database.h"

#include "Collector/SQLite.h"

namespace zorvane::collector {

namespace {

// "sqlite3_statement_backend::prepare: file is not a database": leaves out the function.
std::string reasonOf(const soci::soci_error& error) {
  std::string message = error.get_error_message();
  const std::size_t colon = message.find(": ");
  if (message.substr(0, colon).find("::") != std::string::npos) message.erase(0, colon + 2);
  return message;
}

}  // namespace

DatabaseError::DatabaseError(const soci::soci_error& error) : std::runtime_error(reasonOf(error)) {}

Session::Session(const std::string& path, bool isChecked) {
  try {
    openSQLite(*this, path);
    if (isChecked) checkSQLite(*this);
  } catch (const DatabaseError& error) {
    throw std::runtime_error("cannot use the database " + path + ": " + error.what());
  }
}

std::string insertText(std::string_view table, std::string_view columns, std::string_view rest) {
  std::string placeholders(columns);
  for (std::size_t at = 0; (at = placeholders.find(", ", at)) != std::string::npos; at += 3) {
    placeholders.replace(at, 2, ", :");
  }
  return "INSERT INTO " + std::string(table) + " (" + std::string(columns) + ") VALUES (:" + placeholders + ") " +
         std::string(rest);
}

}  // namespace zorvane::collector
