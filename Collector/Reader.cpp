#include "Collector/Reader.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <mutex>
#include <utility>

#include "Collector/Advice.h"
#include "Collector/Contents.h"
#include "Collector/Schema.h"

namespace zorvane::collector {

namespace {

// The text as it stands within a JSON string.
std::string inJSON(const std::string& text) {
  const std::string whole = jsonText(text);
  return whole.substr(1, whole.size() - 2);
}

template <typename Rows>
std::string arrayOf(const Rows& rows) {
  std::string text = "[";
  for (const auto& row : rows) text += (text.size() == 1 ? "" : ",\n") + row.text;
  return text + "]";
}

template <typename Rows>
std::string firstOf(const Rows& rows) {
  return rows.empty() ? "null" : rows.front().text;
}

Query one(std::initializer_list<std::pair<const std::string, std::string>> filters) {
  Query query;
  query.filters = filters;
  query.limit = 1;
  return query;
}

// What the view compares with the parameter.
std::string boundValue(const View& view, const std::string& parameter, const std::string& value) {
  if (parameter == "name" && &view == &refusedView()) return jsonText(value);
  if (parameter == "q") return patternOf(view.isEvents ? inJSON(value) : value);
  return value;
}

}  // namespace

std::vector<Reader::Row> Reader::select(const View& view, const Query& query) {
  struct Cell {
    std::int64_t integer = 0;
    std::string text;
    soci::indicator state = soci::i_ok;
  };
  const std::lock_guard lock(session_.mutex);
  return session_.read([&] {
    std::vector<Cell> cells(view.columns.size());
    std::map<std::string, std::string> values;
    std::int64_t id = 0;
    soci::statement statement(session_);
    for (std::size_t i = 0; i < cells.size(); ++i) {
      if (view.columns[i].type == Column::Type::Integer) {
        statement.exchange(soci::into(cells[i].integer, cells[i].state));
      } else {
        statement.exchange(soci::into(cells[i].text, cells[i].state));
      }
    }
    statement.exchange(soci::into(id));
    for (const auto& [parameter, value] : query.filters) {
      if (parameter == "status") continue;
      std::string& kept = values[parameter] = boundValue(view, parameter, value);
      session_.engine.encode(kept);
      statement.exchange(soci::use(kept, parameter));
    }
    if (query.after) statement.exchange(soci::use(*query.after, "after"));
    if (query.before) statement.exchange(soci::use(*query.before, "before"));
    statement.exchange(soci::use(query.limit, "limit"));
    statement.alloc();
    statement.prepare(session_.engine.sql(queryOf(view, query)));
    statement.define_and_bind();
    statement.execute();
    std::vector<Row> rows;
    while (statement.fetch()) {
      std::string text = "{";
      for (std::size_t i = 0; i < cells.size(); ++i) {
        const Column& column = view.columns[i];
        text += (i == 0 ? "\"" : ", \"") + std::string(column.name) + "\": ";
        if (cells[i].state != soci::i_ok) {
          text += "null";
        } else if (column.type == Column::Type::Integer) {
          text += std::to_string(cells[i].integer);
        } else {
          session_.engine.decode(cells[i].text);
          text += column.type == Column::Type::JSON ? cells[i].text : jsonText(cells[i].text);
        }
      }
      rows.push_back({id, text + "}"});
    }
    return rows;
  });
}

std::vector<Reader::Row> Reader::events(const Query& query) {
  const auto found = query.filters.find("status");
  const std::string status = found == query.filters.end() ? "accepted" : found->second;
  std::vector<Row> accepted, refused;
  if (status != "refused") accepted = select(viewNamed("events"), query);
  if (status == "accepted") return accepted;
  Query part = query;
  // The same in ids of requests.
  if (part.after) part.after = *part.after / kEventIDs;
  if (part.before) part.before = (*part.before + kEventIDs - 1) / kEventIDs;
  refused = select(refusedView(), part);
  for (Row& row : refused) row.id *= kEventIDs;
  std::vector<Row> rows;
  std::merge(std::move_iterator(accepted.begin()), std::move_iterator(accepted.end()),
             std::move_iterator(refused.begin()), std::move_iterator(refused.end()), std::back_inserter(rows),
             [&](const Row& a, const Row& b) { return query.ascending ? a.id < b.id : a.id > b.id; });
  if (static_cast<std::int64_t>(rows.size()) > query.limit) rows.resize(static_cast<std::size_t>(query.limit));
  return rows;
}

std::string Reader::list(const View& view, const Query& query) {
  return arrayOf(view.isEvents ? events(query) : select(view, query));
}

std::optional<std::string> Reader::detail(std::string text, std::int64_t request) {
  Query query;
  query.after = request - 1;
  query.before = request + 1;
  const auto rows = select(requestView(), query);
  if (rows.empty()) return std::nullopt;
  const json row = json::parse(rows.front().text);
  const auto valueOf = [&](const char* key) { return row[key].is_string() ? row[key].get<std::string>() : ""; };
  const std::string advice = adviceFor(row);
  text += "\"request\": " + rows.front().text;
  if (!advice.empty()) text.insert(text.size() - 1, ", \"advice\": " + jsonText(advice));
  const std::string session = valueOf("session_id"), device = valueOf("unique_id");
  if (session.empty()) {
    text += ", \"session\": null, \"sources\": []";
  } else {
    Query sources;
    sources.filters["session"] = session;
    text += ", \"session\": " + firstOf(select(viewNamed("sessions"), one({{"session", session}})));
    text += ", \"sources\": " + arrayOf(select(viewNamed("sources"), sources));
  }
  text +=
      ", \"device\": " + firstOf(select(viewNamed("devices"), one({{"app", valueOf("app_id")}, {"device", device}})));
  return text + "}";
}

std::optional<std::string> Reader::event(std::int64_t id) {
  Query query;
  query.after = id - 1;
  query.before = id + 1;
  const auto rows = select(viewNamed("events"), query);
  if (rows.empty()) return std::nullopt;
  return detail("{\"event\": " + rows.front().text + ", ", id / kEventIDs);
}

std::optional<std::string> Reader::request(std::int64_t id) {
  return detail("{", id);
}

std::string Reader::names() {
  const std::lock_guard lock(session_.mutex);
  return session_.read([&] {
    std::string text = "[";
    std::string name, last;
    std::int64_t events = 0;
    soci::statement statement =
        (session_.prepare << "SELECT name, sum(number), max(minute) AS last FROM arrivals WHERE "
                             "kind = 'event' GROUP BY name ORDER BY last DESC, name LIMIT 1000",
         soci::into(name), soci::into(events), soci::into(last));
    statement.execute();
    while (statement.fetch()) {
      session_.engine.decode(name);
      text += (text.size() == 1 ? "" : ",\n") + ("{\"name\": " + jsonText(name)) +
              ", \"events\": " + std::to_string(events) + ", \"kind\": \"" + (isModuleEvent(name) ? "module" : "own") +
              "\"}";
    }
    return text + "]";
  });
}

std::string Reader::arrivals(const std::string& from, int characters) {
  const std::lock_guard lock(session_.mutex);
  return session_.read([&] {
    std::string text = "[";
    std::string at, kind, name;
    std::int64_t number = 0;
    soci::statement statement =
        (session_.prepare << "SELECT substr(minute, 1, " << characters
                          << ") AS at, kind, name, sum(number) FROM arrivals WHERE minute >= :from "
                             "GROUP BY at, kind, name ORDER BY at",
         soci::use(from, "from"), soci::into(at), soci::into(kind), soci::into(name), soci::into(number));
    statement.execute();
    while (statement.fetch()) {
      session_.engine.decode(name);
      if (kind == "event" && isModuleEvent(name)) kind = "module";
      text += (text.size() == 1 ? "" : ",\n") + ("{\"at\": " + jsonText(at)) + ", \"kind\": " + jsonText(kind) +
              ", \"name\": " + jsonText(name) + ", \"number\": " + std::to_string(number) + "}";
    }
    return text + "]";
  });
}

json Reader::summary() {
  const std::lock_guard lock(session_.mutex);
  return session_.read([&] {
    const auto count = [this](const char* what) {
      std::int64_t number = 0;
      session_ << "SELECT " << what, soci::into(number);
      return number;
    };
    std::map<int, std::int64_t> byStatus;
    std::int64_t batches = 0, checked = 0, bad = 0, duplicates = 0, refused = 0;
    int status = 0, accepted = 0, duplicate = 0;
    std::string service, signature;
    std::int64_t number = 0;
    soci::statement counts =
        (session_.prepare << "SELECT status, service, accepted, duplicate, coalesce(signature, ''), count(*) FROM "
                             "requests GROUP BY status, service, accepted, duplicate, signature",
         soci::into(status), soci::into(service), soci::into(accepted), soci::into(duplicate), soci::into(signature),
         soci::into(number));
    counts.execute();
    while (counts.fetch()) {
      byStatus[status] += number;
      if (accepted == 1 && service == "report") batches += number;
      if (signature == "missing" || signature == "wrong") bad += number;
      if (signature == "good") checked += number;
      if (duplicate == 1) duplicates += number;
      if (accepted == 0 && duplicate == 0) refused += number;
    }
    json requests = json::object();
    for (const auto& [each, times] : byStatus) requests[std::to_string(each)] = times;
    return json{{"requests", requests},
                {"batches", batches},
                {"events", count("count(*) FROM events")},
                {"sessions", count("count(*) FROM sessions")},
                {"sources", count("count(*) FROM sources")},
                {"devices", count("count(*) FROM devices")},
                {"users", count("count(DISTINCT user_id) FROM visits WHERE user_id <> ''")},
                {"refused", refused},
                {"signatures_checked", checked + bad},
                {"signatures_bad", bad},
                {"duplicates", duplicates}};
  });
}

}  // namespace zorvane::collector
