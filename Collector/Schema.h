// The tables.
//
//   requests    one row per POST to a service, whatever its answer. status: the answer's, 0 when the connection was cut
//               in its place. signature: "good", "missing", "wrong", or "none" where none could be computed; NULL where
//               the body was not looked at. bid: NULL where the body has none. accepted: 1 when its content was stored
//               with it; duplicate: 1 when that had been done before. error: the reason of the answer.
//   batches     one row per report that was accepted. request leads to its row there. user_id and segment_id are its
//               identifiers; session_id and start_time its session; each NULL where the body has none. A batch without
//               a bid cannot be told from another, so each of them is a row.
//   events      the batch's records in their order, position counting from 0; raw is the whole record, attributes its
//               "EVENT_ATTRS", both JSON.
//   attributes  one row per attribute of an event. section: "plain", "timestamp" or "location". type: "text",
//               "integer", "real", "boolean", "null" or "json"; value has SQLite's type for it (booleans 0 and 1; json
//               its text).
//   sessions    one row per session identifier, of the first batch that named it.
//   sources     one row per source of a session ("" where the batch had none), however many batches repeat it.
//   devices     one row per device (application and unique identifier; the bid in place of a missing one), as its last
//               registration describes it.
//
// Times are as the client wrote them, received_at is UTC of this machine's clock, ISO 8601 with milliseconds.
// Dropping a column or changing its meaning takes a new kSchemaVersion; a file of another version is refused.
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
-- A bid is accepted once, whichever the service.
CREATE UNIQUE INDEX IF NOT EXISTS accepted_bids ON requests(bid) WHERE accepted = 1;
)sql";

}  // namespace zorvane::collector
