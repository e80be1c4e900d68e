// httplib's server on the loopback address, with limited connections that can be closed from outside.
#pragma once

#include <httplib.h>

#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "Collector/BodyBudget.h"
#include "Collector/Connection.h"
#include "Collector/Live.h"
#include "Collector/Metrics.h"
#include "Collector/Places.h"

namespace zorvane::collector {

// State of the request that the current thread serves.
struct Exchange {
  Connection& connection;
  std::string body;
  bool bodyIsJSON = false;
  std::string error;
  BodyBudget::Share share;
  // The response is a stream of server-sent events whose header was sent: the connection goes to Live.
  bool isLive = false;
  // Of a POST. Malformed until its head was read and its path found.
  Outcome outcome = Outcome::Malformed;
};

class Listener final : public httplib::Server {
 public:
  // Both must outlive the listener.
  Listener(const ConnectionLimits& limits, BodyBudget& budget, Live& live);

  // Get(), and notes the path for isOffered().
  void offer(const std::string& pattern, Handler handler);
  // Whether GET has something at that path.
  bool isOffered(const std::string& path) const;

  // Port 0 takes a free port. Returns the port. Throws std::runtime_error.
  int bindLoopback(int port);
  // Call after stop(): ends idle connections, so that listen_after_bind() returns.
  void releaseConnections();

  // Only on a thread that serves a request, while it does.
  static Exchange& currentExchange();

 private:
  bool process_and_close_socket(socket_t socket) override;
  bool enter(socket_t socket);
  void leaveAndClose(socket_t socket);
  void leaveToLive(socket_t socket);

  const ConnectionLimits limits_;
  BodyBudget& budget_;
  Live& live_;
  Places places_;
  std::vector<std::regex> offered_;
  std::mutex mutex_;
  std::set<socket_t> open_;
  bool released_ = false;
};

}  // namespace zorvane::collector
