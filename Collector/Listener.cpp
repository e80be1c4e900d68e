#include "Collector/Listener.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

namespace zorvane::collector {

namespace {

constexpr std::size_t kPlaces = 128;
constexpr int kBacklog = 1024;
thread_local Exchange* currentExchangeOfThread = nullptr;

class PlacesQueue final : public httplib::TaskQueue {
 public:
  explicit PlacesQueue(Places& places) : places_(places) {}
  void enqueue(std::function<void()> task) override { places_.serve(std::move(task)); }
  void shutdown() override { places_.finish(); }

 private:
  Places& places_;
};

}  // namespace

Listener::Listener(const ConnectionLimits& limits, BodyBudget& budget, Live& live)
    : limits_(limits), budget_(budget), live_(live), places_(kPlaces) {
  new_task_queue = [this] { return new PlacesQueue(places_); };
  set_tcp_nodelay(true);
  set_keep_alive_max_count(std::numeric_limits<int>::max());
  set_keep_alive_timeout(static_cast<time_t>(limits.idle.count() / 1000));
  // httplib sets SO_REUSEPORT, which would let a second process take the same port.
  set_socket_options([](socket_t socket) {
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  });
}

void Listener::offer(const std::string& pattern, Handler handler) {
  offered_.emplace_back(pattern);
  Get(pattern, std::move(handler));
}

bool Listener::isOffered(const std::string& path) const {
  return std::any_of(offered_.begin(), offered_.end(),
                     [&](const std::regex& pattern) { return std::regex_match(path, pattern); });
}

int Listener::bindLoopback(int port) {
  errno = 0;
  const int bound = port == 0 ? bind_to_any_port("127.0.0.1") : bind_to_port("127.0.0.1", port) ? port : -1;
  if (bound < 0) {
    throw std::runtime_error("cannot listen on 127.0.0.1:" + std::to_string(port) + ": " +
                             (errno != 0 ? std::strerror(errno) : "refused"));
  }
  // httplib listens with a backlog of 5: further clients that come at once would wait for a second.
  ::listen(svr_sock_, kBacklog);
  return bound;
}

Exchange& Listener::currentExchange() {
  return *currentExchangeOfThread;
}

bool Listener::enter(socket_t socket) {
  const std::lock_guard lock(mutex_);
  return !released_ && open_.insert(socket).second;
}

void Listener::leaveAndClose(socket_t socket) {
  // Close under the lock, so that releaseConnections() never shuts down a reused descriptor.
  const std::lock_guard lock(mutex_);
  open_.erase(socket);
  ::shutdown(socket, SHUT_RDWR);
  ::close(socket);
}

void Listener::leaveToLive(socket_t socket) {
  {
    const std::lock_guard lock(mutex_);
    open_.erase(socket);
  }
  live_.take(socket);
}

void Listener::releaseConnections() {
  const std::lock_guard lock(mutex_);
  released_ = true;
  for (const socket_t socket : open_) ::shutdown(socket, SHUT_RD);
}

bool Listener::process_and_close_socket(socket_t socket) {
  if (enter(socket)) {
    Connection connection(socket, limits_, places_);
    bool closed = false, isLive = false;
    while (!closed && connection.canGoOn() && connection.waitForRequest()) {
      Exchange exchange{connection, {}, false, {}, BodyBudget::Share(budget_)};
      currentExchangeOfThread = &exchange;
      const bool processed = process_request(connection, false, closed, nullptr);
      isLive = exchange.isLive;
      if (!processed) break;
    }
    currentExchangeOfThread = nullptr;
    if (isLive) {
      leaveToLive(socket);
      return true;
    }
  }
  leaveAndClose(socket);
  return true;
}

}  // namespace zorvane::collector
