// Everything that was received, in SQLite (tables: Collector/Schema.h).
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "Collector/Checks.h"
#include "Collector/Database.h"
#include "Collector/Views.h"

namespace zorvane::collector {

// What is kept of every POST to a service.
struct RequestRow {
  Service service = Service::Report;
  std::string appID;
  std::size_t bytes = 0;
  int status = 0;  // 0: no answer is sent
  std::optional<Signature> signature;
  std::optional<std::string> bid;
  std::string error;
};

// Any thread. Each operation is one transaction, committed when the call returns, nothing changed if it throws
// DatabaseError. In a file, what was committed survives a power loss.
class Store {
 public:
  // An empty path: in memory. Throws std::runtime_error that names the file.
  explicit Store(const std::string& path);

  // A request whose content is not taken.
  void addRefused(const RequestRow& row);
  // A request whose body has passed the checks. False if its bid was accepted before: only the row is added.
  bool addAccepted(const RequestRow& row, const json& body);

  // {"requests": {STATUS: count}, "batches", "events", "sessions", "sources", "devices", "users",
  //  "signatures_checked", "signatures_bad", "duplicates"}, all of them counts over the whole database.
  json summary();
  // The first rows of the view, objects of columns in their order, NULL as null.
  nlohmann::ordered_json rows(const View& view, std::int64_t limit);

 private:
  std::int64_t addRow(const RequestRow& row, bool accepted, bool duplicate, const std::string& now);
  void addBatch(const RequestRow& row, const json& body, std::int64_t request, const std::string& now);
  void addEvent(const json& event, std::int64_t batch, std::int64_t position);
  void addAttribute(std::int64_t event, const std::string& name, const char* section, const json& value);
  void addSource(const json& source, const std::string& session);
  void addDevice(const RequestRow& row, const json& body, const std::string& now);

  std::mutex mutex_;
  Database database_;
  Statement findBid_, insertRequest_, insertBatch_, insertEvent_, insertAttribute_, insertSession_, insertSource_,
      insertDevice_;
};

}  // namespace zorvane::collector
