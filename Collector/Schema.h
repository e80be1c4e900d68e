// The tables.
//
//   requests    one row per POST, but none for those answered 403 or 500 and those that are not readable as HTTP (400,
//               414, 416). status: the response's, 0 if the connection was closed without one. service: "report",
//               "device", or "unknown" for another path. accepted: 1 if this request stored its content; duplicate: 1
//               if an earlier one had; injected: "failed" or "dropped" if that happened on purpose. signature: "good",
//               "missing", "wrong", or "none" if not computable; NULL if the body was not checked; expected: the right
//               signature when it was missing or wrong. headers: as received, a JSON object. error: why it was refused.
//               The columns from bid to events are the body's, NULL if it has none; events is the number of events in
//               it. Of a refused request, names holds the names of its events, a JSON array, and body the beginning of
//               its body.
//   batches     a view: the accepted reports. A report without a bid is always stored: duplicates of it cannot be
//               recognised.
//   events      the records of the accepted reports. id: kEventIDs times the batch, plus the position from 1, so ids
//   grow
//               in the order of arrival. module: 1 for an event of the module itself. gmt_time: when it happened.
//               raw: the whole record, JSON.
//   attributes  a view: one row per attribute of an event. section: "plain", "timestamp" or "location"; type: as
//               SQLite's json_type() names it.
//   sessions    one row per session identifier. first_batch: the first batch that names it.
//   visits      one row per combination of user, device and session in the batches, with its first and last batch and
//   the
//               numbers of batches and events.
//   sources     one row per different source of a session ("" for batches without a session).
//   devices     one row per device, from its last registration, which is the key request. Application and unique
//               identifier tell devices apart, or the bid if the identifier is missing.
//   arrivals    what came, counted by minute ("2026-11-21T10:00"). kind and name: "event" and the event's name; "delay"
//   and
//               the upper bound in seconds of the time from happening to arriving ("" above all, "ahead" if it arrived
//               before it happened); "refused" and the status; "duplicate" and ""; "injected" and the fault.
//
// Times are as the client wrote them; received_at is this machine's UTC, ISO 8601 with milliseconds.
// Increase kSchemaVersion when a column is dropped or changes its meaning: files of another version are refused.
//
// In the words of SQLite; Collector/PostgreSQL.cpp translates them. The view attributes stands in the files of the
// engines.
#pragma once

#include <cstdint>

namespace zorvane::collector {

inline constexpr int kSchemaVersion = 2;

// More than the events of the largest body.
inline constexpr std::int64_t kEventIDs = 1'000'000;

inline constexpr const char* kSchema = R"sql(
CREATE TABLE IF NOT EXISTS requests (
  id INTEGER PRIMARY KEY,
  received_at TEXT NOT NULL,
  service TEXT NOT NULL,
  app_id TEXT NOT NULL,
  status INTEGER NOT NULL,
  accepted INTEGER NOT NULL,
  duplicate INTEGER NOT NULL,
  injected TEXT,
  signature TEXT,
  expected TEXT,
  headers TEXT NOT NULL,
  bytes INTEGER NOT NULL,
  error TEXT,
  bid TEXT,
  request_time TEXT,
  session_id TEXT NOT NULL,
  start_time TEXT,
  user_id TEXT NOT NULL,
  segment_id TEXT NOT NULL,
  unique_id TEXT NOT NULL,
  events INTEGER NOT NULL,
  names TEXT,
  body TEXT
);
-- A bid is accepted once for both services.
CREATE UNIQUE INDEX IF NOT EXISTS accepted_bids ON requests(bid) WHERE accepted = 1;
CREATE INDEX IF NOT EXISTS requests_by_user ON requests(user_id, id);
CREATE INDEX IF NOT EXISTS requests_by_session ON requests(session_id, id);
CREATE INDEX IF NOT EXISTS requests_by_device ON requests(unique_id, id);
CREATE INDEX IF NOT EXISTS refused_requests ON requests(id) WHERE accepted = 0 AND duplicate = 0;
CREATE INDEX IF NOT EXISTS counted_requests ON requests(status, service, accepted, duplicate, signature);
CREATE VIEW IF NOT EXISTS batches AS
  SELECT id, bid, app_id, request_time, nullif(session_id, '') AS session_id, start_time,
         nullif(user_id, '') AS user_id, nullif(segment_id, '') AS segment_id, nullif(unique_id, '') AS unique_id,
         events, received_at
  FROM requests WHERE accepted = 1 AND service = 'report';
CREATE TABLE IF NOT EXISTS events (
  id INTEGER PRIMARY KEY,
  batch INTEGER NOT NULL REFERENCES requests(id),
  name TEXT NOT NULL,
  module INTEGER NOT NULL,
  gmt_time TEXT,
  raw TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS events_by_name ON events(name, id);
CREATE TABLE IF NOT EXISTS sessions (
  first_batch INTEGER PRIMARY KEY REFERENCES requests(id),
  session_id TEXT NOT NULL UNIQUE,
  start_time TEXT,
  app_id TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS visits (
  app_id TEXT NOT NULL,
  user_id TEXT NOT NULL,
  segment_id TEXT NOT NULL,
  unique_id TEXT NOT NULL,
  session_id TEXT NOT NULL,
  first_batch INTEGER NOT NULL REFERENCES requests(id),
  last_batch INTEGER NOT NULL REFERENCES requests(id),
  batches INTEGER NOT NULL,
  events INTEGER NOT NULL,
  PRIMARY KEY (app_id, user_id, segment_id, unique_id, session_id)
) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS visits_by_user ON visits(user_id);
CREATE INDEX IF NOT EXISTS visits_by_device ON visits(unique_id);
CREATE INDEX IF NOT EXISTS visits_by_session ON visits(session_id);
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
  request INTEGER PRIMARY KEY REFERENCES requests(id),
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
  UNIQUE (app_id, unique_id)
);
CREATE TABLE IF NOT EXISTS arrivals (
  minute TEXT NOT NULL,
  kind TEXT NOT NULL,
  name TEXT NOT NULL,
  number INTEGER NOT NULL,
  PRIMARY KEY (minute, kind, name)
) WITHOUT ROWID;
)sql";

}  // namespace zorvane::collector
