#include "Collector/Views.h"

#include <algorithm>
#include <stdexcept>

#include "Collector/Schema.h"

namespace zorvane::collector {
namespace {

constexpr Column::Type kString = Column::Type::String;
constexpr Column::Type kInteger = Column::Type::Integer;
constexpr Column::Type kJSON = Column::Type::JSON;

// In the words of SQLite; the engine translates them. LIKE ignores the case of A to Z.
constexpr Column kUsers[] = {
    {"id", kInteger},
    {"app_id"},
    {"user_id", kString, "nullif(users.user_id, '')"},
    {"segment_id", kString, "nullif(users.segment_id, '')"},
    {"devices", kInteger},
    {"sessions", kInteger},
    {"batches", kInteger},
    {"events", kInteger},
    {"first_batch", kString, "(SELECT request_time FROM requests WHERE requests.id = users.first_id)"},
    {"last_batch", kString, "(SELECT request_time FROM requests WHERE requests.id = users.id)"},
    {"received_at", kString, "(SELECT received_at FROM requests WHERE requests.id = users.id)"},
};
const Filter kUserFilters[] = {
    {"app", "users.app_id = :app"},
    {"user", "users.user_id = :user"},
    {"device",
     "EXISTS (SELECT 1 FROM visits WHERE visits.unique_id = :device AND visits.app_id = users.app_id AND "
     "visits.user_id = users.user_id AND visits.segment_id = users.segment_id)"},
    {"q", "(users.user_id LIKE :q ESCAPE '\\' OR users.segment_id LIKE :q ESCAPE '\\')"},
};
constexpr const char* kUserSource =
    "FROM (SELECT app_id, user_id, segment_id, count(DISTINCT nullif(unique_id, '')) AS devices, "
    "count(DISTINCT nullif(session_id, '')) AS sessions, sum(batches) AS batches, sum(events) AS events, "
    "min(first_batch) AS first_id, max(last_batch) AS id FROM visits GROUP BY app_id, user_id, segment_id) AS users";

constexpr Column kDevices[] = {
    {"id", kInteger, "devices.request"},
    {"app_id"},
    {"unique_id"},
    {"user_id", kString,
     "(SELECT nullif(user_id, '') FROM visits WHERE visits.unique_id = devices.unique_id AND "
     "visits.app_id = devices.app_id ORDER BY last_batch DESC LIMIT 1)"},
    {"idfv"},
    {"advertising_id"},
    {"preferences", kJSON},
    {"query_params", kJSON},
    {"registrations", kInteger},
    {"request_time"},
    {"batches", kInteger,
     "(SELECT coalesce(sum(batches), 0) FROM visits WHERE visits.unique_id = devices.unique_id AND "
     "visits.app_id = devices.app_id)"},
    {"events", kInteger,
     "(SELECT coalesce(sum(events), 0) FROM visits WHERE visits.unique_id = devices.unique_id AND "
     "visits.app_id = devices.app_id)"},
    {"received_at"},
};
const Filter kDeviceFilters[] = {
    {"app", "devices.app_id = :app"},
    {"device", "devices.unique_id = :device"},
    {"user", "devices.unique_id IN (SELECT unique_id FROM visits WHERE visits.user_id = :user)"},
    {"q",
     "(devices.unique_id LIKE :q ESCAPE '\\' OR devices.idfv LIKE :q ESCAPE '\\' OR "
     "devices.advertising_id LIKE :q ESCAPE '\\' OR devices.query_params LIKE :q ESCAPE '\\')"},
};

constexpr Column kSessions[] = {
    {"id", kInteger, "sessions.first_batch"},
    {"session_id", kString, "sessions.session_id"},
    {"start_time", kString, "sessions.start_time"},
    {"app_id", kString, "sessions.app_id"},
    {"user_id", kString,
     "(SELECT nullif(user_id, '') FROM visits WHERE visits.session_id = sessions.session_id "
     "ORDER BY last_batch DESC LIMIT 1)"},
    {"unique_id", kString, "nullif(requests.unique_id, '')"},
    {"sources", kString,
     "(SELECT group_concat(name, ', ') FROM (SELECT coalesce(source, '-') || ' / ' || coalesce(medium, '-') AS name "
     "FROM sources WHERE sources.session_id = sessions.session_id ORDER BY id) AS named)"},
    {"batches", kInteger, "(SELECT sum(batches) FROM visits WHERE visits.session_id = sessions.session_id)"},
    {"events", kInteger, "(SELECT sum(events) FROM visits WHERE visits.session_id = sessions.session_id)"},
    {"last_batch", kString,
     "(SELECT request_time FROM requests WHERE requests.id = "
     "(SELECT max(last_batch) FROM visits WHERE visits.session_id = sessions.session_id))"},
    {"received_at", kString, "requests.received_at"},
};
const Filter kSessionFilters[] = {
    {"app", "sessions.app_id = :app"},
    {"session", "sessions.session_id = :session"},
    {"user", "sessions.session_id IN (SELECT session_id FROM visits WHERE visits.user_id = :user)"},
    {"device", "sessions.session_id IN (SELECT session_id FROM visits WHERE visits.unique_id = :device)"},
    {"q",
     "(sessions.session_id LIKE :q ESCAPE '\\' OR requests.user_id LIKE :q ESCAPE '\\' OR "
     "sessions.session_id IN (SELECT session_id FROM sources WHERE raw LIKE :q ESCAPE '\\'))"},
};

constexpr Column kSources[] = {
    {"id", kInteger},  {"session_id", kString, "nullif(session_id, '')"},
    {"source"},        {"medium"},
    {"campaign_name"}, {"campaign_id"},
    {"term"},          {"content"},
    {"source_url"},    {"extras"},
};
// Sources without a session belong to no user and no device: all batches without one share them.
const Filter kSourceFilters[] = {
    {"session", "sources.session_id = :session"},
    {"user",
     "sources.session_id <> '' AND sources.session_id IN (SELECT session_id FROM visits WHERE visits.user_id = :user)"},
    {"device",
     "sources.session_id <> '' AND sources.session_id IN (SELECT session_id FROM visits WHERE visits.unique_id = "
     ":device)"},
    {"q", "(sources.session_id LIKE :q ESCAPE '\\' OR sources.raw LIKE :q ESCAPE '\\')"},
};

constexpr Column kBatches[] = {
    {"id", kInteger},
    {"bid"},
    {"app_id"},
    {"user_id", kString, "nullif(user_id, '')"},
    {"segment_id", kString, "nullif(segment_id, '')"},
    {"unique_id", kString, "nullif(unique_id, '')"},
    {"session_id", kString, "nullif(session_id, '')"},
    {"request_time"},
    {"events", kInteger},
    {"received_at"},
};
const Filter kBatchFilters[] = {
    {"app", "app_id = :app"},
    {"user", "user_id = :user"},
    {"session", "session_id = :session"},
    {"device", "unique_id = :device"},
    {"q",
     "(bid LIKE :q ESCAPE '\\' OR user_id LIKE :q ESCAPE '\\' OR session_id LIKE :q ESCAPE '\\' OR "
     "unique_id LIKE :q ESCAPE '\\')"},
};

constexpr Column kEvents[] = {
    {"id", kInteger, "events.id"},
    {"name"},
    {"kind", kString, "CASE events.module WHEN 1 THEN 'module' ELSE 'own' END"},
    {"app_id", kString, "requests.app_id"},
    {"user_id", kString, "nullif(requests.user_id, '')"},
    {"session_id", kString, "nullif(requests.session_id, '')"},
    {"unique_id", kString, "nullif(requests.unique_id, '')"},
    {"gmt_time"},
    {"request_time"},
    {"received_at"},
    {"batch", kInteger},
    {"record", kJSON, "events.raw"},
};
const Filter kEventFilters[] = {
    {"app", "requests.app_id = :app"},
    {"name", "events.name = :name"},
    {"user", "requests.user_id = :user"},
    {"session", "requests.session_id = :session"},
    {"device", "requests.unique_id = :device"},
    {"kind", "events.module = CASE :kind WHEN 'module' THEN 1 ELSE 0 END"},
    {"status", "requests.accepted = 1"},
    {"q",
     "(events.raw LIKE :q ESCAPE '\\' OR events.batch IN (SELECT id FROM requests WHERE user_id LIKE :q ESCAPE '\\' OR "
     "session_id LIKE :q ESCAPE '\\' OR unique_id LIKE :q ESCAPE '\\' OR bid LIKE :q ESCAPE '\\'))"},
};
// In SQLite, CROSS JOIN loops over the tables in this order.
constexpr const char* kEventSource = "FROM events CROSS JOIN requests ON requests.id = events.batch";
// For the filters that the requests have an index for.
constexpr const char* kEventSourceByRequest =
    "FROM requests CROSS JOIN events ON events.id > requests.id * 1000000 AND events.id < (requests.id + 1) * 1000000";
static_assert(kEventIDs == 1'000'000);

constexpr Column kRefused[] = {
    {"id", kInteger, "requests.id * 1000000"},
    {"name", kString, "NULL"},
    {"kind", kString, "'refused'"},
    {"app_id"},
    {"user_id", kString, "nullif(user_id, '')"},
    {"session_id", kString, "nullif(session_id, '')"},
    {"unique_id", kString, "nullif(unique_id, '')"},
    {"request_time"},
    {"received_at"},
    {"batch", kInteger, "requests.id"},
    {"service"},
    {"status", kInteger},
    {"error"},
    {"names", kJSON},
    {"events", kInteger},
};
const Filter kRefusedFilters[] = {
    {"app", "app_id = :app"},
    // The name as JSON has it stands in the array of names.
    {"name", "replace(names, :name, '') <> names"},
    {"user", "user_id = :user"},
    {"session", "session_id = :session"},
    {"device", "unique_id = :device"},
    {"kind", ":kind <> 'module'"},
    {"status", "accepted = 0 AND duplicate = 0"},
    {"q", "(body LIKE :q ESCAPE '\\' OR error LIKE :q ESCAPE '\\' OR headers LIKE :q ESCAPE '\\')"},
};

// The list has the first of them.
constexpr Column kRequest[] = {
    {"id", kInteger},
    {"received_at"},
    {"service"},
    {"app_id"},
    {"status", kInteger},
    {"accepted", kInteger},
    {"duplicate", kInteger},
    {"injected"},
    {"signature"},
    {"bid"},
    {"user_id", kString, "nullif(user_id, '')"},
    {"session_id", kString, "nullif(session_id, '')"},
    {"unique_id", kString, "nullif(unique_id, '')"},
    {"events", kInteger},
    {"bytes", kInteger},
    {"error"},
    {"expected"},
    {"request_time"},
    {"segment_id", kString, "nullif(segment_id, '')"},
    {"start_time"},
    {"names", kJSON},
    {"headers", kJSON},
    {"body"},
};
constexpr std::span<const Column> kRequests = std::span(kRequest).first(16);
const Filter kRequestFilters[] = {
    {"app", "app_id = :app"},
    {"user", "user_id = :user"},
    {"session", "session_id = :session"},
    {"device", "unique_id = :device"},
    {"status", "1 = 1"},
    {"q",
     "(bid LIKE :q ESCAPE '\\' OR error LIKE :q ESCAPE '\\' OR user_id LIKE :q ESCAPE '\\' OR "
     "session_id LIKE :q ESCAPE '\\' OR unique_id LIKE :q ESCAPE '\\' OR names LIKE :q ESCAPE '\\')"},
};

const View kViews[] = {
    {"users", kUsers, kUserSource, "users.id", kUserFilters},
    {"devices", kDevices, "FROM devices", "devices.request", kDeviceFilters},
    {"sessions", kSessions, "FROM sessions JOIN requests ON requests.id = sessions.first_batch", "sessions.first_batch",
     kSessionFilters},
    {"sources", kSources, "FROM sources", "sources.id", kSourceFilters},
    {"batches", kBatches, "FROM (SELECT * FROM requests WHERE accepted = 1 AND service = 'report') AS requests", "id",
     kBatchFilters},
    {"events", kEvents, kEventSource, "events.id", kEventFilters, "accepted, refused, any", true},
    {"requests", kRequests, "FROM requests", "id", kRequestFilters, "accepted, refused, duplicate, any"},
};
const View kRefusedView{"refused", kRefused, "FROM requests", "requests.id", kRefusedFilters};
const View kRequestView{"request", kRequest, "FROM requests", "id", {}};

std::string statusCondition(const std::string& status) {
  if (status == "any") return "1 = 1";
  if (status == "accepted") return "requests.accepted = 1";
  if (status == "refused") return "requests.accepted = 0 AND requests.duplicate = 0";
  if (status == "duplicate") return "requests.duplicate = 1";
  return "requests.status = " + status;
}

}  // namespace

std::span<const View> allViews() {
  return kViews;
}

const View& viewNamed(const std::string& name) {
  const auto found = std::ranges::find_if(kViews, [&](const View& view) { return view.name == name; });
  if (found == std::end(kViews)) throw std::out_of_range(name);
  return *found;
}

const View& refusedView() {
  return kRefusedView;
}

const View& requestView() {
  return kRequestView;
}

std::vector<std::string> filtersOf(const View& view) {
  std::vector<std::string> names;
  for (const Filter& filter : view.filters) names.push_back(filter.parameter);
  return names;
}

std::string queryOf(const View& view, const Query& query) {
  std::string text = "SELECT ";
  for (const Column& column : view.columns) {
    if (column.expression) text += std::string(column.expression) + " AS ";
    text += std::string(column.name) + ", ";
  }
  const bool byRequest = view.isEvents && (query.has("user") || query.has("session") || query.has("device"));
  text += std::string(view.id) + " " + (byRequest ? kEventSourceByRequest : view.source) + " WHERE 1 = 1";
  for (const Filter& filter : view.filters) {
    const bool isStatus = filter.parameter == "status";
    if (isStatus || query.has(filter.parameter.c_str())) text += std::string(" AND ") + filter.condition;
    if (isStatus && query.has("status")) text += " AND " + statusCondition(query.filters.at("status"));
  }
  const std::string id = view.id;
  if (query.after) text += " AND " + id + " > :after";
  if (query.before) text += " AND " + id + " < :before";
  if (byRequest && query.after) text += " AND requests.id >= CAST(:after AS BIGINT) / 1000000";
  if (byRequest && query.before) text += " AND requests.id <= CAST(:before AS BIGINT) / 1000000";
  const std::string order = query.ascending ? " ASC" : " DESC";
  return text + " ORDER BY " + (byRequest ? "requests.id" + order + ", " : "") + id + order + " LIMIT :limit";
}

}  // namespace zorvane::collector
