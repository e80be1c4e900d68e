// Sends the core library's requests over HTTP and HTTPS, with libcurl.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "Platform/Export.h"
#include "ZorvaneCore/NetworkTransport.h"

namespace zorvane {

// Limits of a transport.
struct CurlTransportOptions {
  // For name resolution, connection and TLS handshake together.
  std::chrono::milliseconds connectTimeout{10'000};
  // From sending the request to the last byte of the response, without the time in the queue.
  std::chrono::milliseconds totalTimeout{60'000};
  // A longer response is an error.
  std::size_t maxResponseBytes = 1 << 20;
  // PEM file of the certificate authorities to trust. Empty: the system's.
  std::string certificateFile;
};

// Runs makeBody and the completions on its own thread, without a lock held. An exception of theirs affects only their
// own request. At most six requests are in progress, over connections that are reused. If a server cannot be connected
// to, the requests that wait for it fail at once.
//
// TLS 1.2 or later; certificates and host names are verified. Redirects are not followed: a 3xx is the response. Only
// http and https are allowed. If the server closed a connection while it was idle, the request is sent again over a new
// one.
//
// The process may exit at any moment, even with requests in progress.
class ZR_PUBLIC CurlTransport final : public NetworkTransport {
 public:
  // Throws std::runtime_error if libcurl cannot be set up, std::system_error if the thread cannot be started.
  explicit CurlTransport(CurlTransportOptions options = {});
  // Requests without a response yet get the error "the transport was closed". Returns after the last completion, unless
  // called from a completion.
  ~CurlTransport() override;
  CurlTransport(const CurlTransport&) = delete;
  CurlTransport& operator=(const CurlTransport&) = delete;

  // Any thread, also from a completion.
  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override;

  // The number of requests whose completion has not returned yet. Any thread.
  std::size_t outstanding() const;
  // Waits until outstanding() is 0. Not from a completion.
  void waitUntilIdle() const;

 private:
  class Driver;
  const std::shared_ptr<Driver> driver_;
  std::thread thread_;
};

}  // namespace zorvane
