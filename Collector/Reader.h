// What was received, as JSON texts for the API.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Collector/Checks.h"
#include "Collector/Database.h"
#include "Collector/Query.h"
#include "Collector/Views.h"

namespace zorvane::collector {

// Thread-safe. Every call throws DatabaseError if it fails.
class Reader {
 public:
  // The session must outlive this.
  explicit Reader(Session& session) : session_(session) {}

  // {"requests": {STATUS: count}, "batches", "events", "sessions", "sources", "devices", "users", "refused",
  //  "signatures_checked", "signatures_bad", "duplicates"}, all counts over the whole database.
  json summary();

  // The rows of the view, an array of objects; NULL as null. The list of events holds refused requests if its query
  // asks for that status.
  std::string list(const View& view, const Query& query);
  // {"event", "request", "session", "sources", "device"}; null for what there is not. None: no such event.
  std::optional<std::string> event(std::int64_t id);
  // The same without "event". "request" also has "advice": why it was refused, and what to change.
  std::optional<std::string> request(std::int64_t id);
  // [{"name", "events", "kind"}], the last used first.
  std::string names();
  // [{"at", "kind", "name", "number"}] of the table arrivals, from a time on ("2026-11-21T10:00"), with times cut to
  // that many characters. The kind of the module's own events is "module".
  std::string arrivals(const std::string& from, int characters);

 private:
  struct Row {
    std::int64_t id = 0;
    std::string text;
  };
  std::vector<Row> select(const View& view, const Query& query);
  std::vector<Row> events(const Query& query);
  std::optional<std::string> detail(std::string text, std::int64_t request);

  Session& session_;
};

}  // namespace zorvane::collector
