// The tables.
//
//   requests    one row per POST to a service, whatever its response. status: the response's, 0 if the connection was
//               closed without one. signature: "good", "missing", "wrong", or "none" if not computable; NULL if the
//               body was not checked. bid: NULL if the body has none. accepted: 1 if this request stored its content;
//               duplicate: 1 if an earlier one had. error: why it was refused.
//   batches     one row per accepted report. request: the key of its row in requests. user_id and segment_id are its
//               identifiers; session_id and start_time its session; each NULL if the body has none. A report without
//               a bid is always stored: duplicates of it cannot be recognised.
//   events      the batch's records in their order, position counting from 0; raw is the whole record, attributes its
//               "EVENT_ATTRS", both JSON.
//   attributes  one row per attribute of an event. section: "plain", "timestamp" or "location". type: "text",
//               "integer", "real", "boolean", "null" or "json"; value has SQLite's type for it (booleans 0 and 1; json
//               its text).
//   sessions    one row per session identifier, from the first batch that names it.
//   sources     one row per different source of a session ("" for batches without a session).
//   devices     one row per device, from its last registration. Key: application and unique identifier, or the bid if
//               the identifier is missing.
//
// Times are as the client wrote them; received_at is this machine's UTC, ISO 8601 with milliseconds.
// Increase kSchemaVersion when a column is dropped or changes its meaning: files of another version are refused.
//
// Specific to SQLite: generated keys ("id INTEGER PRIMARY KEY"), attributes.value without a type, "WITHOUT ROWID".
#pragma once

namespace zorvane::collector {

inline constexpr int kSchemaVersion = 1;

inline constexpr const char* kSchema = R"sql(
CREATE TABLE IF NOT EXISTS requests (
  id INTEGER PRIMARY KEY,
  received_at TEXT NOT NULL,
  service TEXT NOT NULL,
  app_id TEXT NOT NULL,
  status INTEGER NOT NULL,
  signature TEXT,
  bid TEXT,
  accepted INTEGER NOT NULL,
  duplicate INTEGER NOT NULL,
  bytes INTEGER NOT NULL,
  error TEXT
);
CREATE TABLE IF NOT EXISTS batches (
  id INTEGER PRIMARY KEY,
  request INTEGER NOT NULL REFERENCES requests(id),
  bid TEXT UNIQUE,
  app_id TEXT NOT NULL,
  request_time TEXT,
  session_id TEXT,
  start_time TEXT,
  user_id TEXT,
  segment_id TEXT,
  unique_id TEXT,
  received_at TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS batches_by_device ON batches(app_id, unique_id);
CREATE TABLE IF NOT EXISTS events (
  id INTEGER PRIMARY KEY,
  batch INTEGER NOT NULL REFERENCES batches(id),
  position INTEGER NOT NULL,
  name TEXT NOT NULL,
  non_interactive INTEGER NOT NULL,
  gmt_time TEXT,
  local_time TEXT,
  attributes TEXT,
  raw TEXT NOT NULL,
  UNIQUE (batch, position)
);
CREATE INDEX IF NOT EXISTS events_by_name ON events(name);
CREATE TABLE IF NOT EXISTS attributes (
  id INTEGER PRIMARY KEY,
  event INTEGER NOT NULL REFERENCES events(id),
  name TEXT NOT NULL,
  section TEXT NOT NULL,
  value,
  type TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS attributes_by_event ON attributes(event);
CREATE TABLE IF NOT EXISTS sessions (
  session_id TEXT PRIMARY KEY,
  start_time TEXT,
  app_id TEXT NOT NULL,
  first_batch INTEGER NOT NULL REFERENCES batches(id)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS sources (
  id INTEGER PRIMARY KEY,
  session_id TEXT NOT NULL,
  source TEXT,
  medium TEXT,
  campaign_name TEXT,
  campaign_id TEXT,
  term TEXT,
  content TEXT,
  source_url TEXT,
  extras TEXT,
  raw TEXT NOT NULL,
  UNIQUE (session_id, raw)
);
CREATE TABLE IF NOT EXISTS devices (
  app_id TEXT NOT NULL,
  unique_id TEXT NOT NULL,
  idfv TEXT,
  advertising_id TEXT,
  preferences TEXT NOT NULL,
  query_params TEXT NOT NULL,
  bid TEXT NOT NULL,
  request_time TEXT NOT NULL,
  registrations INTEGER NOT NULL DEFAULT 1,
  received_at TEXT NOT NULL,
  PRIMARY KEY (app_id, unique_id)
) WITHOUT ROWID;
-- A bid is accepted once for both services.
CREATE UNIQUE INDEX IF NOT EXISTS accepted_bids ON requests(bid) WHERE accepted = 1;
)sql";

}  // namespace zorvane::collector
