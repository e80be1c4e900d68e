#include "Collector/Database.h"

#include <algorithm>

#include "Collector/PostgreSQL.h"
#include "Collector/SQLite.h"

namespace zorvane::collector {

namespace {

// "sqlite3_statement_backend::prepare: file is not a database" and "Cannot execute query. ERROR:  out of shared
// memory": leaves out what SOCI wrote before the database's reason, and all lines but the first of it.
std::string reasonOf(const soci::soci_error& error) {
  std::string message = error.get_error_message();
  const std::size_t colon = message.find(": ");
  if (message.substr(0, colon).find("::") != std::string::npos) message.erase(0, colon + 2);
  for (std::string_view before :
       {"Cannot establish connection to the database.", "Cannot begin transaction.", "Cannot commit transaction.",
        "Cannot prepare statement.", "Cannot execute query.", "Fatal error."}) {
    if (message.starts_with(before)) message.erase(0, std::min(message.size(), before.size() + 1));
  }
  return message.substr(0, message.find('\n'));
}

}  // namespace

DatabaseError::DatabaseError(const soci::soci_error& error) : std::runtime_error(reasonOf(error)) {}

const Engine& engineOf(const std::string& database) {
  const bool isURL = database.starts_with("postgresql://") || database.starts_with("postgres://");
  return isURL ? postgreSQL() : sqlite();
}

Session::Session(const std::string& databaseToOpen, bool isChecked)
    : database(databaseToOpen), engine(engineOf(database)) {
  try {
    connect();
    if (isChecked) engine.check(*this);
  } catch (const DatabaseError& error) {
    throw std::runtime_error("cannot use the database " + engine.nameOf(database) + ": " + error.what());
  }
}

void Session::connect() {
  close();
  try {
    engine.open(*this, database);
  } catch (...) {
    close();
    throw;
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
