#include "Collector/Connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace zorvane::collector {

void Connection::startLimits(std::chrono::milliseconds time, std::chrono::milliseconds patience) {
  deadline_ = Clock::now() + time;
  patientUntil_ = Clock::now() + patience;
}

void Connection::addTimeFor(std::size_t bytes) {
  deadline_ += std::chrono::microseconds(bytes);
  patientUntil_ += std::chrono::microseconds(bytes);
}

void Connection::doNotCountSince(Clock::time_point start) {
  const auto time = Clock::now() - start;
  deadline_ += time;
  patientUntil_ += time;
}

bool Connection::waitFor(short events) const {
  while (true) {
    const auto now = Clock::now();
    const bool isPatient = now < patientUntil_;
    if (!isPatient && places_.giveWay()) gaveWay_ = closing_ = true;
    if (gaveWay_ && events == POLLIN) return false;
    const auto end = isPatient ? std::min(deadline_, patientUntil_) : gaveWay_ ? now : deadline_;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now).count();
    pollfd entries[] = {{socket_, events, 0}, {isPatient || gaveWay_ ? -1 : places_.wanted(), POLLIN, 0}};
    const int ready = ::poll(entries, 2, static_cast<int>(std::max<long>(left, 0)));
    if (ready > 0 && entries[0].revents != 0) return true;
    if (ready < 0 && errno != EINTR) return false;
    if (gaveWay_ || Clock::now() >= deadline_) return false;
  }
}

bool Connection::waitForRequest() {
  using std::chrono::milliseconds;
  startLimits(limits_.idle, hadRequest_ ? milliseconds(0) : limits_.patience);
  if (bufferBegin_ == bufferEnd_ && !waitFor(POLLIN)) return false;
  startLimits(limits_.request, limits_.patience);
  bytesLeft_ = limits_.bytes;
  hadRequest_ = true;
  writing_ = exceeded_ = false;
  return true;
}

bool Connection::is_readable() const {
  return bufferBegin_ < bufferEnd_ || waitFor(POLLIN);
}

bool Connection::is_writable() const {
  return !dropped_;
}

ssize_t Connection::read(char* data, std::size_t size) {
  if (bytesLeft_ == 0) {
    exceeded_ = closing_ = true;
    return -1;
  }
  if (bufferBegin_ == bufferEnd_) {
    if (!waitFor(POLLIN)) return -1;
    const ssize_t count = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
    if (count <= 0) return count;
    bufferBegin_ = 0;
    bufferEnd_ = static_cast<std::size_t>(count);
    addTimeFor(bufferEnd_);
  }
  const std::size_t count = std::min({size, bufferEnd_ - bufferBegin_, bytesLeft_});
  std::memcpy(data, buffer_.data() + bufferBegin_, count);
  bufferBegin_ += count;
  bytesLeft_ -= count;
  return static_cast<ssize_t>(count);
}

ssize_t Connection::write(const char* data, std::size_t size) {
  if (!std::exchange(writing_, true)) startLimits(limits_.response, limits_.patience);
  if (dropped_ || !waitFor(POLLOUT)) return -1;
  const ssize_t count = ::send(socket_, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (count > 0) addTimeFor(static_cast<std::size_t>(count));
  return count;
}

void Connection::get_remote_ip_and_port(std::string& ip, int& port) const {
  ip = "127.0.0.1";
  port = 0;
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const {
  get_remote_ip_and_port(ip, port);
}

}  // namespace zorvane::collector
