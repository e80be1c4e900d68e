// The HTTP library's server with this program's connections: loopback only, bounded, and stopped at once.
#pragma once

#include <httplib.h>

#include <mutex>
#include <set>
#include <string>

#include "Collector/Connection.h"

namespace zorvane::collector {

// What belongs to the request that the current thread serves.
struct Exchange {
  Connection& connection;
  std::string body;
  bool bodyIsJSON = false;
  std::string error;
};

class Listener final : public httplib::Server {
 public:
  explicit Listener(const ConnectionLimits& limits);

  // Port 0 takes a free one. Returns the port. Throws std::runtime_error.
  int bindLoopback(int port);
  // After stop(): lets idle connections go, so that listen_after_bind() returns.
  void releaseConnections();

  // Valid on a thread that serves a request, for as long as it does.
  static Exchange& currentExchange();

 private:
  bool process_and_close_socket(socket_t socket) override;
  bool enter(socket_t socket);
  void leaveAndClose(socket_t socket);

  const ConnectionLimits limits_;
  std::mutex mutex_;
  std::set<socket_t> open_;
  bool released_ = false;
};

}  // namespace zorvane::collector
