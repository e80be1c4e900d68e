// One client's connection, with limits on time and bytes, so that a slow client does not hold a thread.
#pragma once

#include <httplib.h>

#include <array>
#include <chrono>
#include <cstddef>

#include "Collector/Places.h"

namespace zorvane::collector {

// The times of a request and of a response grow by a microsecond per byte.
struct ConnectionLimits {
  std::chrono::milliseconds idle{15'000};      // to the first byte of the next request
  std::chrono::milliseconds request{10'000};   // from there to its last byte
  std::chrono::milliseconds response{10'000};  // from its first byte to its last
  // While other connections wait for a place: the time for a request or a response. An idle connection that has had a
  // request gives way at once.
  std::chrono::milliseconds patience{1'000};
  std::size_t bytes = 64u << 20;  // of one request; reading more fails
  // Of all bodies beyond 64 KiB that are in memory, one of them not counted; and how long a body waits for that before
  // it is refused with 503.
  std::size_t bodyBytes = 48u << 20;
  std::chrono::milliseconds bodyPatience{10'000};
};

// Used by one thread of the places. Does not own the socket.
class Connection final : public httplib::Stream {
 public:
  Connection(socket_t socket, const ConnectionLimits& limits, Places& places)
      : socket_(socket), limits_(limits), places_(places) {}

  // Waits for the next request and starts its limits. False at the end of the connection, after the idle time, and when
  // the connection gives way.
  bool waitForRequest();
  // The time since then does not count for the request.
  void doNotCountSince(std::chrono::steady_clock::time_point start);
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
  void startLimits(std::chrono::milliseconds time, std::chrono::milliseconds patience);
  void addTimeFor(std::size_t bytes);
  bool waitFor(short events) const;

  const socket_t socket_;
  const ConnectionLimits limits_;
  Places& places_;
  Clock::time_point deadline_{};
  Clock::time_point patientUntil_{};
  std::size_t bytesLeft_ = 0;
  // httplib reads lines byte by byte; the socket is read in blocks.
  std::array<char, 16384> buffer_{};
  std::size_t bufferBegin_ = 0, bufferEnd_ = 0;
  bool hadRequest_ = false, writing_ = false, dropped_ = false, exceeded_ = false;
  mutable bool closing_ = false, gaveWay_ = false;
};

}  // namespace zorvane::collector
