#include "Collector/Store.h"

#include <chrono>
#include <cstdio>
#include <ctime>

#include "Collector/Schema.h"

namespace zorvane::collector {

namespace {

std::string timeNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
  const std::time_t seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[64];
  const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + size, sizeof text - size, ".%03dZ", static_cast<int>(milliseconds % 1000));
  return text;
}

const char* nameOf(Service service) {
  return service == Service::Report ? "report" : "device";
}

const char* nameOf(Signature signature) {
  switch (signature) {
    case Signature::None:
      return "none";
    case Signature::Good:
      return "good";
    case Signature::Missing:
      return "missing";
    case Signature::Wrong:
      return "wrong";
  }
  return "none";
}

// Text as it is, any other value as JSON.
std::optional<std::string> textOf(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || found->is_null()) return std::nullopt;
  return found->is_string() ? found->get<std::string>() : found->dump();
}

std::int64_t versionOf(Database& database) {
  Statement version(database.get(), "PRAGMA user_version");
  version.step();
  return version.integer(0);
}

Database openDatabase(const std::string& path) {
  try {
    Database database(path);
    if (const auto found = versionOf(database); found != 0 && found != kSchemaVersion) {
      throw DatabaseError("its tables are of version " + std::to_string(found) + ", not " +
                          std::to_string(kSchemaVersion));
    }
    database.execute("PRAGMA journal_mode = WAL");
    database.execute(path.empty() ? "PRAGMA synchronous = OFF" : "PRAGMA synchronous = FULL");
    Transaction transaction(database);
    database.execute(kSchema);
    database.execute(("PRAGMA user_version = " + std::to_string(kSchemaVersion)).c_str());
    transaction.commit();
    return database;
  } catch (const DatabaseError& error) {
    throw std::runtime_error("cannot use the database " + path + ": " + error.what());
  }
}

}  // namespace

Store::Store(const std::string& path)
    : database_(openDatabase(path)),
      findBid_(database_.get(), "SELECT 1 FROM requests WHERE bid = ? AND accepted = 1"),
      insertRequest_(database_.get(),
                     "INSERT INTO requests (received_at, service, app_id, status, signature, bid, accepted, duplicate, "
                     "bytes, error) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
      insertBatch_(database_.get(),
                   "INSERT INTO batches (request, bid, app_id, request_time, session_id, start_time, user_id, "
                   "segment_id, unique_id, received_at) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
      insertEvent_(database_.get(),
                   "INSERT INTO events (batch, position, name, non_interactive, gmt_time, local_time, attributes, raw) "
                   "VALUES (?, ?, ?, ?, ?, ?, ?, ?)"),
      insertAttribute_(database_.get(),
                       "INSERT INTO attributes (event, name, section, value, type) VALUES (?, ?, ?, ?, ?)"),
      insertSession_(database_.get(),
                     "INSERT INTO sessions (session_id, start_time, app_id, first_batch) VALUES (?, ?, ?, ?) "
                     "ON CONFLICT DO NOTHING"),
      insertSource_(database_.get(),
                    "INSERT INTO sources (session_id, source, medium, campaign_name, campaign_id, term, content, "
                    "source_url, extras, raw) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT DO NOTHING"),
      insertDevice_(database_.get(),
                    "INSERT INTO devices (app_id, unique_id, idfv, advertising_id, preferences, query_params, bid, "
                    "request_time, received_at) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?) "
                    "ON CONFLICT DO UPDATE SET idfv = excluded.idfv, advertising_id = excluded.advertising_id, "
                    "preferences = excluded.preferences, query_params = excluded.query_params, bid = excluded.bid, "
                    "request_time = excluded.request_time, received_at = excluded.received_at, "
                    "registrations = registrations + 1") {}

void Store::addRefused(const RequestRow& row) {
  const std::lock_guard lock(mutex_);
  addRow(row, false, false, timeNow());
}

bool Store::addAccepted(const RequestRow& row, const json& body) {
  const std::lock_guard lock(mutex_);
  const std::string now = timeNow();
  Transaction transaction(database_);
  bool known = false;
  if (row.bid) {
    findBid_.bind(1, row.bid);
    while (findBid_.step()) known = true;
  }
  const std::int64_t request = addRow(row, !known, known, now);
  if (!known) row.service == Service::Report ? addBatch(row, body, request, now) : addDevice(row, body, now);
  transaction.commit();
  return !known;
}

std::int64_t Store::addRow(const RequestRow& row, bool accepted, bool duplicate, const std::string& now) {
  insertRequest_.bind(1, now).bind(2, nameOf(row.service)).bind(3, row.appID).bind(4, std::int64_t{row.status});
  if (row.signature) {
    insertRequest_.bind(5, nameOf(*row.signature));
  } else {
    insertRequest_.bindNull(5);
  }
  insertRequest_.bind(6, row.bid).bind(7, std::int64_t{accepted}).bind(8, std::int64_t{duplicate});
  insertRequest_.bind(9, static_cast<std::int64_t>(row.bytes));
  insertRequest_.bind(10, row.error.empty() ? std::nullopt : std::optional(row.error)).run();
  return database_.lastRowID();
}

void Store::addBatch(const RequestRow& row, const json& body, std::int64_t request, const std::string& now) {
  const json none = json::object();
  const auto section = [&none](const json& object, const char* key) -> const json& {
    const auto found = object.find(key);
    return found == object.end() ? none : *found;
  };
  const json& meta = section(body, "meta");
  const json& session = section(meta, "session");
  const json& identifiers = section(body, "identifiers");
  const auto sessionID = textOf(session, "session_id");
  const auto startTime = textOf(session, "start_time");

  insertBatch_.bind(1, request).bind(2, row.bid).bind(3, row.appID).bind(4, textOf(meta, "request_time"));
  insertBatch_.bind(5, sessionID).bind(6, startTime).bind(7, textOf(identifiers, "zrv_user_id"));
  insertBatch_.bind(8, textOf(identifiers, "segment_id")).bind(9, textOf(section(body, "query_params"), "unique_id"));
  insertBatch_.bind(10, now).run();
  const std::int64_t batch = database_.lastRowID();

  if (sessionID) insertSession_.bind(1, sessionID).bind(2, startTime).bind(3, row.appID).bind(4, batch).run();
  for (const json& source : section(meta, "source")) addSource(source, sessionID.value_or(""));
  std::int64_t position = 0;
  for (const json& event : section(body, "viewsInfo")) addEvent(event, batch, position++);
}

void Store::addEvent(const json& event, std::int64_t batch, std::int64_t position) {
  insertEvent_.bind(1, batch).bind(2, position).bind(3, textOf(event, "EVENT_ACTION"));
  insertEvent_.bind(4, std::int64_t{event.contains("N_I_E")}).bind(5, textOf(event, "EVENT_G_TIME"));
  insertEvent_.bind(6, textOf(event, "EVENT_L_TIME")).bind(7, textOf(event, "EVENT_ATTRS")).bind(8, event.dump()).run();
  const std::int64_t id = database_.lastRowID();
  if (const auto plain = event.find("EVENT_ATTRS"); plain != event.end()) {
    for (const auto& [name, value] : plain->items()) addAttribute(id, name, "plain", value);
  }
  const auto custom = event.find("EVENT_ATTRS_CUST");
  if (custom == event.end()) return;
  for (const char* section : {"timestamp", "location"}) {
    const auto pairs = custom->find(section);
    if (pairs == custom->end()) continue;
    for (const json& pair : *pairs) addAttribute(id, pair.begin().key(), section, pair.begin().value());
  }
}

void Store::addAttribute(std::int64_t event, const std::string& name, const char* section, const json& value) {
  const char* type = "json";
  switch (value.type()) {
    case json::value_t::null:
      insertAttribute_.bindNull(4);
      type = "null";
      break;
    case json::value_t::boolean:
      insertAttribute_.bind(4, std::int64_t{value.get<bool>()});
      type = "boolean";
      break;
    case json::value_t::number_integer:
      insertAttribute_.bind(4, value.get<std::int64_t>());
      type = "integer";
      break;
    case json::value_t::number_unsigned:
      // SQLite's integers end at 2^63 - 1; beyond, the digits are kept.
      if (value.get<std::uint64_t>() > INT64_MAX) {
        insertAttribute_.bind(4, value.dump());
      } else {
        insertAttribute_.bind(4, value.get<std::int64_t>());
      }
      type = "integer";
      break;
    case json::value_t::number_float:
      insertAttribute_.bind(4, value.get<double>());
      type = "real";
      break;
    case json::value_t::string:
      insertAttribute_.bind(4, value.get_ref<const std::string&>());
      type = "text";
      break;
    default:
      insertAttribute_.bind(4, value.dump());
      break;
  }
  insertAttribute_.bind(1, event).bind(2, name).bind(3, section).bind(5, type).run();
}

void Store::addSource(const json& source, const std::string& session) {
  insertSource_.bind(1, session);
  int index = 2;
  for (const char* key :
       {"source", "medium", "campaign_name", "campaign_id", "term", "content", "source_url", "extras"}) {
    insertSource_.bind(index++, textOf(source, key));
  }
  insertSource_.bind(index, source.dump()).run();
}

void Store::addDevice(const RequestRow& row, const json& body, const std::string& now) {
  const json& meta = body.at("meta");
  const json& params = body.at("query_params");
  insertDevice_.bind(1, row.appID).bind(2, textOf(params, "unique_id").value_or(row.bid.value_or("")));
  insertDevice_.bind(3, textOf(body, "IDFV")).bind(4, textOf(body, "ADVERTISING_IDENTIFIER"));
  insertDevice_.bind(5, meta.at("dev_pref").dump()).bind(6, params.dump()).bind(7, row.bid);
  insertDevice_.bind(8, textOf(meta, "request_time")).bind(9, now).run();
}

json Store::summary() {
  const std::lock_guard lock(mutex_);
  const auto count = [this](const char* sql) {
    Statement statement(database_.get(), sql);
    statement.step();
    return statement.integer(0);
  };
  json requests = json::object();
  Statement byStatus(database_.get(), "SELECT status, count(*) FROM requests GROUP BY status ORDER BY status");
  while (byStatus.step()) requests[byStatus.text(0)] = byStatus.integer(1);
  return {
      {"requests", requests},
      {"batches", count("SELECT count(*) FROM batches")},
      {"events", count("SELECT count(*) FROM events")},
      {"sessions", count("SELECT count(*) FROM sessions")},
      {"sources", count("SELECT count(*) FROM sources")},
      {"devices", count("SELECT count(*) FROM devices")},
      {"users", count("SELECT count(DISTINCT user_id) FROM batches")},
      {"signatures_checked", count("SELECT count(*) FROM requests WHERE signature IN ('good', 'missing', 'wrong')")},
      {"signatures_bad", count("SELECT count(*) FROM requests WHERE signature IN ('missing', 'wrong')")},
      {"duplicates", count("SELECT count(*) FROM requests WHERE duplicate = 1")}};
}

nlohmann::ordered_json Store::rows(const View& view, std::int64_t limit) {
  const std::lock_guard lock(mutex_);
  Statement statement(database_.get(), view.sql);
  statement.bind(1, limit);
  auto rows = nlohmann::ordered_json::array();
  while (statement.step()) {
    auto row = nlohmann::ordered_json::object();
    for (int column = 0; column < statement.columns(); ++column) {
      auto& value = row[statement.name(column)];
      if (statement.type(column) == SQLITE_INTEGER) {
        value = statement.integer(column);
      } else if (statement.type(column) != SQLITE_NULL) {
        value = statement.text(column);
      }
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

}  // namespace zorvane::collector
