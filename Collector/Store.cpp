#include "Collector/Store.h"

#include <algorithm>
#include <map>
#include <utility>

#include "Collector/Schema.h"

namespace zorvane::collector {

namespace {

const char* nameOf(Service service) {
  switch (service) {
    case Service::Report:
      return "report";
    case Service::Device:
      return "device";
    case Service::Unknown:
      return "unknown";
  }
  return "unknown";
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

// A JSON array.
std::string namesOf(const Contents& contents) {
  json names = json::array();
  for (const auto& [name, number] : contents.names) names.push_back(name);
  return names.dump();
}

}  // namespace

Store::Inserts::Inserts(Session& database)
    :  // A conflict: the bid was accepted before.
      request(database, "requests",
              "received_at, service, app_id, status, accepted, duplicate, injected, signature, expected, headers, "
              "bytes, error, bid, request_time, session_id, start_time, user_id, segment_id, unique_id, events, names, "
              "body",
              "ON CONFLICT DO NOTHING RETURNING id"),
      event(database, "events", "id, batch, name, module, gmt_time, raw"),
      session(database, "sessions", "first_batch, session_id, start_time, app_id", "ON CONFLICT DO NOTHING"),
      visit(database, "visits",
            "app_id, user_id, segment_id, unique_id, session_id, first_batch, last_batch, batches, events",
            "ON CONFLICT (app_id, user_id, segment_id, unique_id, session_id) DO UPDATE SET "
            "last_batch = excluded.last_batch, batches = visits.batches + 1, events = visits.events + excluded.events"),
      source(database, "sources",
             "session_id, source, medium, campaign_name, campaign_id, term, content, source_url, extras, raw",
             "ON CONFLICT DO NOTHING"),
      device(database, "devices",
             "request, app_id, unique_id, idfv, advertising_id, preferences, query_params, bid, request_time, "
             "received_at",
             "ON CONFLICT (app_id, unique_id) DO UPDATE SET request = excluded.request, idfv = excluded.idfv, "
             "advertising_id = excluded.advertising_id, preferences = excluded.preferences, "
             "query_params = excluded.query_params, bid = excluded.bid, request_time = excluded.request_time, "
             "received_at = excluded.received_at, registrations = devices.registrations + 1"),
      arrival(database, "arrivals", "minute, kind, name, number",
              "ON CONFLICT (minute, kind, name) DO UPDATE SET number = arrivals.number + excluded.number") {}

Store::Store(const std::string& database)
    : writer_(database, true), reader_(database.empty() ? nullptr : std::make_unique<Session>(database)) {
  insert_.emplace(writer_);
}

void Store::addRefused(const RequestRow& row, const json& body) {
  Request request{row, body, false};
  commit({&request, 1});
}

bool Store::addAccepted(const RequestRow& row, const json& body) {
  Request request{row, body, true};
  commit({&request, 1});
  return request.stored;
}

std::vector<bool> Store::addAcceptedTogether(std::span<const AcceptedRequest> requests) {
  std::vector<Request> each;
  each.reserve(requests.size());
  for (const AcceptedRequest& request : requests) each.push_back({request.row, request.body, true});
  commit(each);
  std::vector<bool> stored;
  for (const Request& request : each) stored.push_back(request.stored);
  return stored;
}

void Store::checkWritable() {
  const std::lock_guard lock(writer_.mutex);
  try {
    withWriter([this] { writer_.engine.write(writer_); });
  } catch (const soci::soci_error& error) {
    throw DatabaseError(error);
  }
}

template <typename Work>
void Store::withWriter(Work work) {
  if (insert_) {
    try {
      return work();
    } catch (const soci::soci_error&) {
      if (!writer_.isLost()) throw;
    }
  }
  insert_.reset();
  writer_.connect();
  insert_.emplace(writer_);
  work();
}

void Store::commit(std::span<Request> requests) {
  Write write{requests, false, nullptr};
  std::unique_lock lock(mutex_);
  waiting_.push_back(&write);
  changed_.wait(lock, [&] { return write.done || !writing_; });
  if (!write.done) {
    writing_ = true;
    const std::vector<Write*> writes = std::exchange(waiting_, {});
    lock.unlock();
    writeTogether(writes);
    lock.lock();
    writing_ = false;
    for (Write* each : writes) each->done = true;
    changed_.notify_all();
  }
  if (!write.failure) return;
  try {
    std::rethrow_exception(write.failure);
  } catch (const soci::soci_error& error) {
    throw DatabaseError(error);
  }
}

void Store::writeTogether(const std::vector<Write*>& writes) {
  bool failsForAll = true;
  try {
    const std::lock_guard lock(writer_.mutex);
    std::optional<soci::transaction> transaction;
    withWriter([&] {
      transaction.emplace(writer_);
      writer_.engine.beginWrites(writer_);
    });
    try {
      for (Write* write : writes) {
        for (Request& request : write->requests) add(request);
      }
      transaction->commit();
    } catch (...) {
      failsForAll = writer_.isLost();
      throw;
    }
  } catch (...) {
    // A request that fails does not cost the others.
    if (writes.size() > 1 && !failsForAll) {
      for (Write* write : writes) writeTogether({write});
    } else {
      for (Write* write : writes) write->failure = std::current_exception();
    }
  }
}

void Store::add(Request& request) {
  const RequestRow& row = request.row;
  const Contents contents = contentsOf(request.body);
  const std::string now = row.receivedAt ? *row.receivedAt : timeNow();
  if (row.injected) addArrival(now, "injected", *row.injected);
  if (!request.accepted) {
    addRow(request, contents, false, false, now);
    addArrival(now, "refused", std::to_string(row.status));
    return;
  }
  const auto id = addRow(request, contents, true, false, now);
  request.stored = id.has_value();
  if (!id) {
    addRow(request, contents, false, true, now);
    addArrival(now, "duplicate", "");
  } else if (row.service == Service::Report) {
    addBatch(row, request.body, contents, *id, now);
  } else {
    addDevice(row, request.body, *id, now);
  }
}

std::optional<std::int64_t> Store::addRow(const Request& request, const Contents& contents, bool accepted,
                                          bool duplicate, const std::string& now) {
  const RequestRow& row = request.row;
  return insert_->request.run(now, nameOf(row.service), row.appID, row.status, accepted, duplicate, row.injected,
                              row.signature ? Text(nameOf(*row.signature)) : std::nullopt, row.expected, row.headers,
                              static_cast<std::int64_t>(row.bytes), row.error.empty() ? std::nullopt : Text(row.error),
                              row.bid, contents.requestTime, contents.sessionID, contents.startTime, contents.userID,
                              contents.segmentID, contents.uniqueID, contents.events,
                              request.accepted ? std::nullopt : Text(namesOf(contents)), row.body);
}

void Store::addBatch(const RequestRow& row, const json& body, const Contents& contents, std::int64_t id,
                     const std::string& now) {
  if (!contents.sessionID.empty()) insert_->session.run(id, contents.sessionID, contents.startTime, row.appID);
  insert_->visit.run(row.appID, contents.userID, contents.segmentID, contents.uniqueID, contents.sessionID, id, id, 1,
                     contents.events);
  for (const json& source : sectionOf(sectionOf(body, "meta"), "source")) addSource(source, contents.sessionID);
  for (const auto& [name, number] : contents.names) addArrival(now, "event", name, number);
  addEvents(body, id, now);
}

void Store::addEvents(const json& body, std::int64_t batch, const std::string& now) {
  std::map<std::string_view, std::int64_t> delays;
  const double arrived = secondsOf(now).value_or(0);
  std::int64_t id = batch * kEventIDs;
  for (const json& event : sectionOf(body, "viewsInfo")) {
    const Text happened = textOf(event, "EVENT_G_TIME");
    if (const auto time = happened ? secondsOf(*happened) : std::nullopt) ++delays[delayName(arrived - *time)];
    std::string name = event.at("EVENT_ACTION").get<std::string>();
    const bool isOfModule = isModuleEvent(name);
    insert_->event.run(++id, batch, std::move(name), isOfModule, happened, event.dump());
  }
  for (const auto& [name, number] : delays) addArrival(now, "delay", std::string(name), number);
}

void Store::addSource(const json& source, const std::string& session) {
  insert_->source.run(session, textOf(source, "source"), textOf(source, "medium"), textOf(source, "campaign_name"),
                      textOf(source, "campaign_id"), textOf(source, "term"), textOf(source, "content"),
                      textOf(source, "source_url"), textOf(source, "extras"), source.dump());
}

void Store::addDevice(const RequestRow& row, const json& body, std::int64_t request, const std::string& now) {
  const json& meta = body.at("meta");
  const json& params = body.at("query_params");
  insert_->device.run(request, row.appID, textOf(params, "unique_id").value_or(row.bid.value_or("")),
                      textOf(body, "IDFV"), textOf(body, "ADVERTISING_IDENTIFIER"), meta.at("dev_pref").dump(),
                      params.dump(), row.bid, textOf(meta, "request_time"), now);
}

void Store::addArrival(const std::string& now, std::string_view kind, const std::string& name, std::int64_t number) {
  insert_->arrival.run(now.substr(0, std::string_view("2026-11-21T10:00").size()), std::string(kind), name, number);
}

}  // namespace zorvane::collector
