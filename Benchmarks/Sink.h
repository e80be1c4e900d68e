// A collection service that accepts everything at once and only counts, so that it takes as little as possible of the
// machine that is measured.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_set>

namespace zorvane::bench {

class Sink {
 public:
  // Takes a free port of this machine. Without listening, connections to it are refused while the sink exists. Ends the
  // process if it cannot.
  explicit Sink(bool isListening = true);
  ~Sink();
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;
  int port() const { return port_; }
  // Serves until the descriptor can be read or is at its end.
  void run(int end);

  // Of the requests with a batch, headers included.
  std::size_t bytes() const { return bytes_; }
  // Each batch once.
  std::size_t events() const { return events_; }
  std::size_t batches() const { return identifiers_.size(); }
  std::size_t repeatedBatches() const { return repeated_; }

 private:
  struct Connection {
    int socket;
    std::string received;
  };

  // Answers the whole requests that were received; false when the connection has ended.
  bool serve(Connection& connection);
  void count(std::string_view request);

  int listener_ = -1;
  int port_ = 0;
  std::size_t bytes_ = 0;
  std::size_t events_ = 0;
  std::size_t repeated_ = 0;
  std::unordered_set<std::string> identifiers_;
};

}  // namespace zorvane::bench
