#include "Collector/Connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zorvane::collector {

bool Connection::waitFor(short events, Clock::time_point deadline) const {
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    pollfd entry{socket_, events, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(left));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

bool Connection::waitForRequest() {
  if (bufferBegin_ == bufferEnd_ && !waitFor(POLLIN, Clock::now() + limits_.idle)) return false;
  deadline_ = Clock::now() + limits_.request;
  bytesLeft_ = limits_.bytes;
  exceeded_ = false;
  return true;
}

bool Connection::is_readable() const {
  return bufferBegin_ < bufferEnd_ || waitFor(POLLIN, deadline_);
}

bool Connection::is_writable() const {
  return !dropped_ && waitFor(POLLOUT, deadline_);
}

ssize_t Connection::read(char* data, std::size_t size) {
  if (bytesLeft_ == 0) {
    exceeded_ = closing_ = true;
    return -1;
  }
  if (bufferBegin_ == bufferEnd_) {
    if (!waitFor(POLLIN, deadline_)) return -1;
    const ssize_t count = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
    if (count <= 0) return count;
    bufferBegin_ = 0;
    bufferEnd_ = static_cast<std::size_t>(count);
  }
  const std::size_t count = std::min({size, bufferEnd_ - bufferBegin_, bytesLeft_});
  std::memcpy(data, buffer_.data() + bufferBegin_, count);
  bufferBegin_ += count;
  bytesLeft_ -= count;
  return static_cast<ssize_t>(count);
}

ssize_t Connection::write(const char* data, std::size_t size) {
  if (!is_writable()) return -1;
  return ::send(socket_, data, size, MSG_NOSIGNAL);
}

void Connection::get_remote_ip_and_port(std::string& ip, int& port) const {
  ip = "127.0.0.1";
  port = 0;
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const {
  get_remote_ip_and_port(ip, port);
}

}  // namespace zorvane::collector
