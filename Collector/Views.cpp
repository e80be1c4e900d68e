#include "Collector/Views.h"

namespace zorvane::collector {
namespace {

constexpr Column::Type kInteger = Column::Type::Integer;

// group_concat is specific to SQLite; other databases have string_agg.
constexpr Column kUsers[] = {
    {"app_id"},
    {"user_id", Column::Type::String, "nullif(user_id, '')"},
    {"segment_id", Column::Type::String, "nullif(segment_id, '')"},
    {"devices", kInteger},
    {"sessions", kInteger},
    {"batches", kInteger},
    {"events", kInteger},
    {"first_batch", Column::Type::String, "(SELECT request_time FROM requests WHERE id = first_id)"},
    {"last_batch", Column::Type::String, "(SELECT request_time FROM requests WHERE id = last_id)"},
};
constexpr Column kDevices[] = {
    {"app_id"},
    {"unique_id"},
    {"idfv"},
    {"advertising_id"},
    {"preferences"},
    {"query_params"},
    {"registrations", kInteger},
    {"request_time"},
    {"batches", kInteger,
     "coalesce((SELECT sum(batches) FROM visits WHERE visits.app_id = devices.app_id AND visits.unique_id = "
     "devices.unique_id), 0)"},
    {"received_at"},
};
constexpr Column kSessions[] = {
    {"session_id", Column::Type::String, "sessions.session_id"},
    {"start_time", Column::Type::String, "sessions.start_time"},
    {"app_id", Column::Type::String, "sessions.app_id"},
    {"user_id"},
    {"sources", Column::Type::String,
     "(SELECT group_concat(coalesce(source, '-') || ' / ' || coalesce(medium, '-'), ', ') FROM sources WHERE "
     "sources.session_id = sessions.session_id)"},
};
constexpr Column kSources[] = {
    {"session_id"}, {"source"},  {"medium"},     {"campaign_name"}, {"campaign_id"},
    {"term"},       {"content"}, {"source_url"}, {"extras"},
};
constexpr Column kBatches[] = {
    {"id", kInteger}, {"bid"},        {"app_id"},       {"user_id"},          {"segment_id"},
    {"unique_id"},    {"session_id"}, {"request_time"}, {"events", kInteger}, {"received_at"},
};
constexpr Column kEvents[] = {
    {"id", kInteger, "events.id"}, {"name"}, {"user_id"},         {"session_id"}, {"gmt_time"},
    {"module", kInteger},          {"raw"},  {"batch", kInteger},
};
constexpr Column kRequests[] = {
    {"id", kInteger}, {"received_at"},         {"service"},         {"app_id"}, {"status", kInteger}, {"signature"},
    {"bid"},          {"duplicate", kInteger}, {"bytes", kInteger}, {"error"},
};

constexpr View kViews[] = {
    {"users", kUsers,
     "FROM (SELECT app_id, user_id, segment_id, count(DISTINCT nullif(unique_id, '')) AS devices, "
     "count(DISTINCT nullif(session_id, '')) AS sessions, sum(batches) AS batches, sum(events) AS events, "
     "min(first_batch) AS first_id, max(last_batch) AS last_id FROM visits GROUP BY app_id, user_id, segment_id) AS "
     "users "
     "ORDER BY last_id DESC LIMIT :limit"},
    {"devices", kDevices, "FROM devices ORDER BY request DESC LIMIT :limit"},
    {"sessions", kSessions,
     "FROM sessions JOIN batches ON batches.id = first_batch ORDER BY first_batch DESC LIMIT :limit"},
    {"sources", kSources, "FROM sources ORDER BY id DESC LIMIT :limit"},
    {"batches", kBatches, "FROM batches ORDER BY id DESC LIMIT :limit"},
    {"events", kEvents, "FROM events JOIN batches ON batches.id = batch ORDER BY events.id DESC LIMIT :limit"},
    {"requests", kRequests, "FROM requests ORDER BY id DESC LIMIT :limit"},
};

}  // namespace

std::span<const View> allViews() {
  return kViews;
}

std::string queryOf(const View& view) {
  std::string text;
  for (const Column& column : view.columns) {
    text += text.empty() ? "SELECT " : ", ";
    if (column.expression) text += std::string(column.expression) + " AS ";
    text += column.name;
  }
  return text + " " + view.source;
}

const char* inspectorPage() {
  return R"html(<!DOCTYPE html>
<html lang="en">
<meta charset="utf-8">
<title>zrcollector</title>
<style>
  body { font: 14px/1.4 system-ui, sans-serif; margin: 1.5em; color: #222; }
  dl { display: flex; flex-wrap: wrap; gap: .5em 2em; }
  dt { color: #666; } dd { margin: 0; font-size: 1.5em; }
  button { font: inherit; padding: .3em .8em; margin: 0 .3em 1em 0; border: 1px solid #bbb; background: #fff; }
  button[aria-pressed=true] { background: #222; color: #fff; }
  table { border-collapse: collapse; font-size: 13px; }
  th, td { text-align: left; vertical-align: top; padding: .25em .8em .25em 0; border-bottom: 1px solid #ddd; }
  td { max-width: 40em; overflow-wrap: anywhere; }
  .none { color: #aaa; }
</style>
<h1>zrcollector</h1>
<dl id="summary"></dl>
<nav id="views"></nav>
<p id="note"></p>
<table id="rows"></table>
<script>
const limit = 200;
const views = ["users", "devices", "sessions", "sources", "batches", "events", "requests"];
const byId = id => document.getElementById(id);
const add = (parent, tag, text) => {
  const element = parent.appendChild(document.createElement(tag));
  if (text !== undefined) element.textContent = text;
  return element;
};
const get = async name => {
  const response = await fetch("/api/" + name);
  if (!response.ok) throw new Error("/api/" + name + ": HTTP status " + response.status);
  return response.json();
};
let shown = views.includes(location.hash.slice(1)) ? location.hash.slice(1) : "users";
async function refresh() {
  const asked = shown;
  try {
    const [summary, rows] = await Promise.all([get("summary"), get(asked + "?limit=" + limit)]);
    if (asked !== shown) return;
    byId("summary").replaceChildren();
    for (const [key, value] of Object.entries(summary)) {
      const part = add(byId("summary"), "div");
      add(part, "dt", key.replaceAll("_", " "));
      add(part, "dd", typeof value === "object" ? Object.entries(value).map(e => e.join(": ")).join(", ") : value);
    }
    byId("note").textContent = rows.length === limit ? "the newest " + limit : rows.length ? "" : "none yet";
    byId("rows").replaceChildren();
    if (!rows.length) return;
    const head = add(byId("rows"), "tr");
    for (const key of Object.keys(rows[0])) add(head, "th", key.replaceAll("_", " "));
    for (const row of rows) {
      const line = add(byId("rows"), "tr");
      for (const value of Object.values(row)) add(line, "td", value ?? "–").className = value === null ? "none" : "";
    }
  } catch (error) {
    byId("note").textContent = error.message;
  }
}
for (const view of views) {
  add(byId("views"), "button", view).onclick = () => {
    shown = location.hash = view;
    mark();
    refresh();
  };
}
function mark() {
  for (const button of byId("views").children) button.setAttribute("aria-pressed", button.textContent === shown);
}
mark();
refresh();
setInterval(refresh, 3000);
</script>
</html>
)html";
}

}  // namespace zorvane::collector
