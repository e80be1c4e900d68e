#include "Sink.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace zorvane::bench {
namespace {

constexpr std::string_view kAnswer = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 2\r\n\r\n{}";

[[noreturn]] void giveUp(const char* what) {
  std::perror(what);
  std::exit(1);
}

// The number behind the text; 0 without one.
std::size_t numberBehind(std::string_view text, std::string_view name) {
  const std::size_t at = text.find(name);
  std::size_t number = 0;
  if (at != std::string_view::npos) {
    std::from_chars(text.data() + at + name.size(), text.data() + text.size(), number);
  }
  return number;
}

}  // namespace

Sink::Sink(bool isListening) {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  socklen_t length = sizeof address;
  if (listener_ < 0 || ::bind(listener_, any, length) != 0 || (isListening && ::listen(listener_, 64) != 0) ||
      ::getsockname(listener_, any, &length) != 0) {
    giveUp("the sink cannot listen");
  }
  port_ = ntohs(address.sin_port);
}

Sink::~Sink() {
  ::close(listener_);
}

void Sink::run(int end) {
  std::vector<Connection> connections;
  std::vector<pollfd> watched;
  while (true) {
    watched.assign({{end, POLLIN, 0}, {listener_, POLLIN, 0}});
    for (const Connection& each : connections) watched.push_back({each.socket, POLLIN, 0});
    if (::poll(watched.data(), watched.size(), -1) < 0) giveUp("poll");
    if (watched[0].revents != 0) break;
    for (std::size_t i = connections.size(); i-- > 0;) {
      if (watched[i + 2].revents == 0 || serve(connections[i])) continue;
      ::close(connections[i].socket);
      connections.erase(connections.begin() + static_cast<std::ptrdiff_t>(i));
    }
    if (watched[1].revents != 0) {
      const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (socket < 0) continue;
      const int on = 1;
      ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      connections.push_back({socket, {}});
    }
  }
  for (const Connection& each : connections) ::close(each.socket);
}

bool Sink::serve(Connection& connection) {
  std::string& received = connection.received;
  char buffer[65536];
  const ssize_t length = ::recv(connection.socket, buffer, sizeof buffer, 0);
  if (length <= 0) return false;
  received.append(buffer, static_cast<std::size_t>(length));
  while (true) {
    const std::size_t headers = received.find("\r\n\r\n");
    if (headers == std::string::npos) return true;
    const std::size_t whole =
        headers + 4 + numberBehind(std::string_view(received).substr(0, headers), "Content-Length: ");
    if (received.size() < whole) return true;
    count(std::string_view(received).substr(0, whole));
    received.erase(0, whole);
    if (::send(connection.socket, kAnswer.data(), kAnswer.size(), MSG_NOSIGNAL) < 0) return false;
  }
}

void Sink::count(std::string_view request) {
  constexpr std::string_view kIdentifier = "\"bid\":\"";
  if (request.substr(0, request.find('\r')).find("/v1/report/") == std::string_view::npos) return;
  bytes_ += request.size();
  const std::size_t at = request.find(kIdentifier);
  if (at == std::string_view::npos) return;
  const std::size_t start = at + kIdentifier.size();
  if (identifiers_.emplace(request.substr(start, request.find('"', start) - start)).second) {
    events_ += numberBehind(request, "\"viewsCount\":");
  } else {
    ++repeated_;
  }
}

}  // namespace zorvane::bench
