// One client's connection, with the limits that keep a slow or endless client from holding a thread.
#pragma once

#include <httplib.h>

#include <array>
#include <chrono>
#include <cstddef>

namespace zorvane::collector {

struct ConnectionLimits {
  std::chrono::milliseconds idle{15'000};     // to the first byte of the next request
  std::chrono::milliseconds request{30'000};  // from there to the last byte of the answer
  std::size_t bytes = 64u << 20;              // read for one request; then reading fails
};

// Owned by the thread that serves it; the socket stays the caller's.
class Connection final : public httplib::Stream {
 public:
  Connection(socket_t socket, const ConnectionLimits& limits) : socket_(socket), limits_(limits) {}

  // Waits for the next request and starts its limits. False when there is none.
  bool waitForRequest();
  // Nothing more is written, and no further request is read.
  void drop() { dropped_ = true; }
  // This request's answer is the last.
  void closeAfterAnswer() { closing_ = true; }
  bool dropped() const { return dropped_; }
  bool canGoOn() const { return !dropped_ && !closing_; }
  // Reading failed because the request went over its bytes.
  bool exceeded() const { return exceeded_; }

  bool is_readable() const override;
  bool is_writable() const override;
  ssize_t read(char* data, std::size_t size) override;
  ssize_t write(const char* data, std::size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return socket_; }

 private:
  using Clock = std::chrono::steady_clock;
  bool waitFor(short events, Clock::time_point deadline) const;

  const socket_t socket_;
  const ConnectionLimits limits_;
  Clock::time_point deadline_{};
  std::size_t bytesLeft_ = 0;
  // Requests are read in blocks: the library asks for a line one byte at a time.
  std::array<char, 16384> buffer_{};
  std::size_t bufferBegin_ = 0, bufferEnd_ = 0;
  bool dropped_ = false, closing_ = false, exceeded_ = false;
};

}  // namespace zorvane::collector
