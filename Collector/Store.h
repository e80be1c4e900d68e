// Everything that was received, in a database (tables: Collector/Schema.h).
#pragma once

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Collector/Checks.h"
#include "Collector/Contents.h"
#include "Collector/Database.h"

namespace zorvane::collector {

// What the server knows of a request to a service beside its contents.
struct RequestRow {
  Service service = Service::Report;
  std::string appID;
  std::size_t bytes = 0;
  int status = 0;  // 0: no response is sent
  std::optional<Signature> signature;
  Text expected;  // the right signature if it is missing or wrong
  Text bid;
  Text injected;
  std::string headers;  // a JSON object
  std::string error;
  Text body;        // of a refused request, as far as it is kept
  Text receivedAt;  // as timeText() writes it; none: now
};

// A request whose body passed the checks.
struct AcceptedRequest {
  RequestRow row;
  json body;
};

// Thread-safe. Requests that wait for the database at the same time share a transaction, which is committed when the
// calls return. If a call throws DatabaseError, it stored nothing, unless the connection to PostgreSQL was lost during
// the commit. Unless it is in memory, committed data survives a power loss. Several stores may share a database.
class Store {
 public:
  // A file or a URL of PostgreSQL; empty: in memory. Throws std::runtime_error that names it.
  explicit Store(const std::string& database);

  // Stores the row of a request that was refused. The body is null if it is no JSON.
  void addRefused(const RequestRow& row, const json& body);
  // Stores a request whose body passed the checks. False if its bid was accepted before: then only the row is stored.
  bool addAccepted(const RequestRow& row, const json& body);
  // Stores them all in one transaction, or none if it throws. Says of each what addAccepted() returns.
  std::vector<bool> addAcceptedTogether(std::span<const AcceptedRequest> requests);

  // Commits a write that changes nothing. Throws DatabaseError if that fails.
  void checkWritable();

  // For queries. In memory it is the connection that writes, too; otherwise it is one of its own.
  Session& reader() { return reader_ ? *reader_ : writer_; }

 private:
  // Prepared once. The types are those of the columns, in their order.
  struct Inserts {
    explicit Inserts(Session& database);
    Insert<std::string, std::string, std::string, int, int, int, Text, Text, Text, std::string, std::int64_t, Text,
           Text, Text, Text, Text, Text, Text, Text, std::int64_t, Text, Text>
        request;
    Insert<std::int64_t, std::int64_t, std::string, int, Text, std::string> event;
    Insert<std::int64_t, std::string, Text, std::string> session;
    Insert<std::string, std::string, std::string, std::string, std::string, std::int64_t, std::int64_t, int,
           std::int64_t>
        visit;
    Insert<std::string, Text, Text, Text, Text, Text, Text, Text, Text, std::string> source;
    Insert<std::int64_t, std::string, std::string, Text, Text, std::string, std::string, Text, Text, std::string>
        device;
    Insert<std::string, std::string, std::string, std::int64_t> arrival;
  };
  struct Request {
    const RequestRow& row;
    const json& body;
    const bool accepted;
    bool stored = false;
  };
  // What one call waits for, on the stack of its thread.
  struct Write {
    std::span<Request> requests;
    bool done = false;
    std::exception_ptr failure;
  };

  // Returns when the requests are committed. Throws their failure.
  void commit(std::span<Request> requests);
  void writeTogether(const std::vector<Write*>& writes);
  // Needs the writer's mutex. Runs the work; again over another connection if the connection was lost.
  template <typename Work>
  void withWriter(Work work);
  void add(Request& request);
  std::optional<std::int64_t> addRow(const Request& request, const Contents& contents, bool accepted, bool duplicate,
                                     const std::string& now);
  void addBatch(const RequestRow& row, const json& body, const Contents& contents, std::int64_t id,
                const std::string& now);
  void addEvents(const json& body, std::int64_t batch, const std::string& now);
  void addSource(const json& source, const std::string& session);
  void addDevice(const RequestRow& row, const json& body, std::int64_t request, const std::string& now);
  void addArrival(const std::string& now, std::string_view kind, const std::string& name, std::int64_t number = 1);

  Session writer_;
  std::unique_ptr<Session> reader_;  // none for a database in memory: it has one connection only
  std::optional<Inserts> insert_;    // none while there is no connection
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Write*> waiting_;
  bool writing_ = false;
};

}  // namespace zorvane::collector
