// One client's connection, with limits on time and bytes, so that a slow client does not hold a thread.
#pragma once

#include <httplib.h>

#include <array>
#include <chrono>
#include <cstddef>

namespace zorvane::collector {

struct ConnectionLimits {
  std::chrono::milliseconds idle{15'000};     // to the first byte of the next request
  std::chrono::milliseconds request{30'000};  // from there to the last byte of the response
  std::size_t bytes = 64u << 20;              // of one request; reading more fails
};

// Used by one thread. Does not own the socket.
class Connection final : public httplib::Stream {
 public:
  Connection(socket_t socket, const ConnectionLimits& limits) : socket_(socket), limits_(limits) {}

  // Waits for the next request and starts its limits. False at the end of the connection or after the idle time.
  bool waitForRequest();
  // Neither writes the response nor reads another request.
  void drop() { dropped_ = true; }
  // Closes the connection after this request's response.
  void closeAfterResponse() { closing_ = true; }
  bool dropped() const { return dropped_; }
  bool canGoOn() const { return !dropped_ && !closing_; }
  // Whether reading failed because the request has too many bytes.
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
  // httplib reads lines byte by byte; the socket is read in blocks.
  std::array<char, 16384> buffer_{};
  std::size_t bufferBegin_ = 0, bufferEnd_ = 0;
  bool dropped_ = false, closing_ = false, exceeded_ = false;
};

}  // namespace zorvane::collector
