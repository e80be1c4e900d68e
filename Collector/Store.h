// Everything that was received, in a database (tables: Collector/Schema.h).
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "Collector/Checks.h"
#include "Collector/Database.h"
#include "Collector/Views.h"

namespace zorvane::collector {

// One row of the table requests.
struct RequestRow {
  Service service = Service::Report;
  std::string appID;
  std::size_t bytes = 0;
  int status = 0;  // 0: no response is sent
  std::optional<Signature> signature;
  std::optional<std::string> bid;
  std::string error;
};

// Thread-safe. Each operation is one transaction, committed when the call returns. If it throws DatabaseError, nothing
// changed. In a file, committed data survives a power loss.
class Store {
 public:
  // An empty path: in memory. Throws std::runtime_error that names the file.
  explicit Store(const std::string& path);

  // Stores the row of a request that was refused.
  void addRefused(const RequestRow& row);
  // Stores a request whose body passed the checks. False if its bid was accepted before: then only the row is stored.
  bool addAccepted(const RequestRow& row, const json& body);

  // {"requests": {STATUS: count}, "batches", "events", "sessions", "sources", "devices", "users",
  //  "signatures_checked", "signatures_bad", "duplicates"}, all counts over the whole database.
  json summary();
  // The first rows of the view, as objects with its columns in order; NULL as null.
  nlohmann::ordered_json rows(const View& view, std::int64_t limit);

 private:
  using Text = std::optional<std::string>;
  // Opens the session before statements are prepared on it.
  struct Session : soci::session {
    explicit Session(const std::string& path);
  };
  // Prepared once. The types are those of the columns, in their order.
  struct Inserts {
    explicit Inserts(soci::session& database);
    Insert<std::string, std::string, std::string, int, Text, Text, int, int, std::int64_t, Text> request;
    Insert<std::int64_t, Text, std::string, Text, Text, Text, Text, Text, Text, std::string> batch;
    Insert<std::int64_t, std::int64_t, Text, int, Text, Text, Text, std::string> event;
    // One for each type of value.
    Insert<std::int64_t, std::string, std::string, std::int64_t, std::string> integerAttribute;
    Insert<std::int64_t, std::string, std::string, double, std::string> realAttribute;
    Insert<std::int64_t, std::string, std::string, Text, std::string> textAttribute;
    Insert<std::string, Text, std::string, std::int64_t> session;
    Insert<std::string, Text, Text, Text, Text, Text, Text, Text, Text, std::string> source;
    Insert<std::string, std::string, Text, Text, std::string, std::string, Text, Text, std::string> device;
  };

  // Commits after the work, rolls back if it throws. Turns SOCI's errors into DatabaseError.
  template <typename Work>
  auto inTransaction(Work work);
  std::optional<std::int64_t> addRow(const RequestRow& row, bool accepted, bool duplicate, const std::string& now);
  void addBatch(const RequestRow& row, const json& body, std::int64_t request, const std::string& now);
  void addEvent(const json& event, std::int64_t batch, std::int64_t position);
  void addAttribute(std::int64_t event, const std::string& name, const char* section, const json& value);
  void addSource(const json& source, const std::string& session);
  void addDevice(const RequestRow& row, const json& body, const std::string& now);

  std::mutex mutex_;
  Session session_;
  Inserts insert_;
};

}  // namespace zorvane::collector
