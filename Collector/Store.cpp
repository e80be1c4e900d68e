#include "Collector/Store.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <utility>
#include <vector>

#include "Collector/SQLite.h"

namespace zorvane::collector {

namespace {

using Text = std::optional<std::string>;

constexpr const char* kAttributeColumns = "event, name, section, value, type";

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

// A string as it is, any other value as JSON; absent for null.
Text textOf(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || found->is_null()) return std::nullopt;
  return found->is_string() ? found->get<std::string>() : found->dump();
}

}  // namespace

Store::Session::Session(const std::string& path) {
  try {
    openSQLite(*this, path);
  } catch (const DatabaseError& error) {
    throw std::runtime_error("cannot use the database " + path + ": " + error.what());
  }
}

Store::Inserts::Inserts(soci::session& database)
    :  // A conflict: the bid was accepted before.
      request(database, "requests",
              "received_at, service, app_id, status, signature, bid, accepted, duplicate, bytes, error",
              "ON CONFLICT DO NOTHING RETURNING id"),
      batch(database, "batches",
            "request, bid, app_id, request_time, session_id, start_time, user_id, segment_id, unique_id, received_at",
            "RETURNING id"),
      event(database, "events", "batch, position, name, non_interactive, gmt_time, local_time, attributes, raw",
            "RETURNING id"),
      integerAttribute(database, "attributes", kAttributeColumns),
      realAttribute(database, "attributes", kAttributeColumns),
      textAttribute(database, "attributes", kAttributeColumns),
      session(database, "sessions", "session_id, start_time, app_id, first_batch", "ON CONFLICT DO NOTHING"),
      source(database, "sources",
             "session_id, source, medium, campaign_name, campaign_id, term, content, source_url, extras, raw",
             "ON CONFLICT DO NOTHING"),
      device(database, "devices",
             "app_id, unique_id, idfv, advertising_id, preferences, query_params, bid, request_time, received_at",
             "ON CONFLICT (app_id, unique_id) DO UPDATE SET idfv = excluded.idfv, "
             "advertising_id = excluded.advertising_id, preferences = excluded.preferences, "
             "query_params = excluded.query_params, bid = excluded.bid, request_time = excluded.request_time, "
             "received_at = excluded.received_at, registrations = devices.registrations + 1") {}

Store::Store(const std::string& path) : session_(path), insert_(session_) {}

template <typename Work>
auto Store::inTransaction(Work work) {
  const std::lock_guard lock(mutex_);
  try {
    soci::transaction transaction(session_);
    auto result = work();
    transaction.commit();
    return result;
  } catch (const soci::soci_error& error) {
    throw DatabaseError(error);
  }
}

void Store::addRefused(const RequestRow& row) {
  inTransaction([&] { return addRow(row, false, false, timeNow()); });
}

bool Store::addAccepted(const RequestRow& row, const json& body) {
  return inTransaction([&] {
    const std::string now = timeNow();
    const auto request = addRow(row, true, false, now);
    if (!request) {
      addRow(row, false, true, now);
    } else if (row.service == Service::Report) {
      addBatch(row, body, *request, now);
    } else {
      addDevice(row, body, now);
    }
    return request.has_value();
  });
}

std::optional<std::int64_t> Store::addRow(const RequestRow& row, bool accepted, bool duplicate,
                                          const std::string& now) {
  return insert_.request.run(now, nameOf(row.service), row.appID, row.status,
                             row.signature ? Text(nameOf(*row.signature)) : std::nullopt, row.bid, accepted, duplicate,
                             static_cast<std::int64_t>(row.bytes), row.error.empty() ? std::nullopt : Text(row.error));
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

  const std::int64_t batch = insert_.batch
                                 .run(request, row.bid, row.appID, textOf(meta, "request_time"), sessionID, startTime,
                                      textOf(identifiers, "zrv_user_id"), textOf(identifiers, "segment_id"),
                                      textOf(section(body, "query_params"), "unique_id"), now)
                                 .value();
  if (sessionID) insert_.session.run(*sessionID, startTime, row.appID, batch);
  for (const json& source : section(meta, "source")) addSource(source, sessionID.value_or(""));
  std::int64_t position = 0;
  for (const json& event : section(body, "viewsInfo")) addEvent(event, batch, position++);
}

void Store::addEvent(const json& event, std::int64_t batch, std::int64_t position) {
  const std::int64_t id =
      insert_.event
          .run(batch, position, textOf(event, "EVENT_ACTION"), event.contains("N_I_E"), textOf(event, "EVENT_G_TIME"),
               textOf(event, "EVENT_L_TIME"), textOf(event, "EVENT_ATTRS"), event.dump())
          .value();
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
  const auto addText = [&](Text text, const char* type) {
    insert_.textAttribute.run(event, name, section, std::move(text), type);
  };
  const auto addInteger = [&](std::int64_t integer, const char* type) {
    insert_.integerAttribute.run(event, name, section, integer, type);
  };
  switch (value.type()) {
    case json::value_t::null:
      return addText(std::nullopt, "null");
    case json::value_t::boolean:
      return addInteger(value.get<bool>(), "boolean");
    case json::value_t::number_unsigned:
      // The column holds integers up to 2^63 - 1; larger ones are stored as text.
      if (value.get<std::uint64_t>() > INT64_MAX) return addText(value.dump(), "integer");
      [[fallthrough]];
    case json::value_t::number_integer:
      return addInteger(value.get<std::int64_t>(), "integer");
    case json::value_t::number_float:
      insert_.realAttribute.run(event, name, section, value.get<double>(), "real");
      return;
    case json::value_t::string:
      return addText(value.get_ref<const std::string&>(), "text");
    default:
      return addText(value.dump(), "json");
  }
}

void Store::addSource(const json& source, const std::string& session) {
  insert_.source.run(session, textOf(source, "source"), textOf(source, "medium"), textOf(source, "campaign_name"),
                     textOf(source, "campaign_id"), textOf(source, "term"), textOf(source, "content"),
                     textOf(source, "source_url"), textOf(source, "extras"), source.dump());
}

void Store::addDevice(const RequestRow& row, const json& body, const std::string& now) {
  const json& meta = body.at("meta");
  const json& params = body.at("query_params");
  insert_.device.run(row.appID, textOf(params, "unique_id").value_or(row.bid.value_or("")), textOf(body, "IDFV"),
                     textOf(body, "ADVERTISING_IDENTIFIER"), meta.at("dev_pref").dump(), params.dump(), row.bid,
                     textOf(meta, "request_time"), now);
}

json Store::summary() {
  return inTransaction([&] {
    const auto count = [this](const char* what) {
      std::int64_t number = 0;
      session_ << "SELECT " << what, soci::into(number);
      return number;
    };
    json requests = json::object();
    int status = 0;
    std::int64_t number = 0;
    soci::statement byStatus =
        (session_.prepare << "SELECT status, count(*) FROM requests GROUP BY status ORDER BY status",
         soci::into(status), soci::into(number));
    byStatus.execute();
    while (byStatus.fetch()) requests[std::to_string(status)] = number;
    return json{{"requests", requests},
                {"batches", count("count(*) FROM batches")},
                {"events", count("count(*) FROM events")},
                {"sessions", count("count(*) FROM sessions")},
                {"sources", count("count(*) FROM sources")},
                {"devices", count("count(*) FROM devices")},
                {"users", count("count(DISTINCT user_id) FROM batches")},
                {"signatures_checked", count("count(*) FROM requests WHERE signature IN ('good', 'missing', 'wrong')")},
                {"signatures_bad", count("count(*) FROM requests WHERE signature IN ('missing', 'wrong')")},
                {"duplicates", count("count(*) FROM requests WHERE duplicate = 1")}};
  });
}

nlohmann::ordered_json Store::rows(const View& view, std::int64_t limit) {
  return inTransaction([&] {
    struct Cell {
      std::int64_t integer = 0;
      Text text;
      soci::indicator state = soci::i_ok;
    };
    std::vector<Cell> cells(view.columns.size());
    soci::statement statement(session_);
    for (std::size_t i = 0; i < cells.size(); ++i) {
      if (view.columns[i].type == Column::Type::Integer) {
        statement.exchange(soci::into(cells[i].integer, cells[i].state));
      } else {
        statement.exchange(soci::into(cells[i].text));
      }
    }
    statement.exchange(soci::use(limit));
    statement.alloc();
    statement.prepare(queryOf(view));
    statement.define_and_bind();
    statement.execute();
    auto rows = nlohmann::ordered_json::array();
    while (statement.fetch()) {
      auto row = nlohmann::ordered_json::object();
      for (std::size_t i = 0; i < cells.size(); ++i) {
        auto& value = row[view.columns[i].name];
        if (view.columns[i].type == Column::Type::Integer) {
          if (cells[i].state == soci::i_ok) value = cells[i].integer;
        } else if (cells[i].text) {
          value = *cells[i].text;
        }
      }
      rows.push_back(std::move(row));
    }
    return rows;
  });
}

}  // namespace zorvane::collector
