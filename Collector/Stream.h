// The requests' way through a NATS JetStream: collectors with --stream publish them, those with --from store them.
// Subjects, names and limits: docs/collector.md. In a build without NATS the functions that make these classes throw.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "Collector/Live.h"
#include "Collector/Metrics.h"
#include "Collector/Store.h"

namespace zorvane::collector {

// Why the stream cannot be used, or did not take a request.
class StreamError : public std::runtime_error {
 public:
  explicit StreamError(const std::string& reason, bool isTooLarge = false)
      : std::runtime_error(reason), isTooLarge_(isTooLarge) {}
  // Trying again does not help.
  bool isTooLarge() const { return isTooLarge_; }

 private:
  const bool isTooLarge_;
};

// Thread-safe.
class Publisher {
 public:
  virtual ~Publisher() = default;
  // Publishes a request that passed the checks. Returns when the stream has it: false if the stream knows its bid
  // already. Throws StreamError after five seconds without an acknowledgement, when the stream is full, and if the
  // message is larger than the servers allow. Without an acknowledgement the stream may have it nevertheless.
  virtual bool publish(const RequestRow& row, const std::string& body) = 0;
  // Throws StreamError unless there is a connection, and the stream has a leader and room. Makes the stream if there is
  // none.
  virtual void checkReady() = 0;
  // From now on nothing waits for a connection.
  virtual void stop() = 0;
};

// Stores what the stream holds, on a thread of its own, until it is destroyed: then it finishes the messages under way.
class Consumer {
 public:
  virtual ~Consumer() = default;
};

// The servers are addresses ("nats://HOST:PORT"), separated by commas. One that cannot be reached is tried for ever;
// whether it can is said on standard error unless quiet. Throw StreamError for addresses that cannot be read.
std::unique_ptr<Publisher> makePublisher(const std::string& servers, bool quiet);
// The others must outlive the consumer.
std::unique_ptr<Consumer> startConsumer(const std::string& servers, bool quiet, Store& store, Metrics& metrics,
                                        Live& live);

}  // namespace zorvane::collector
