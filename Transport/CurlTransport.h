// The core library's requests over HTTP and HTTPS, by libcurl.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "ZorvaneCore/NetworkTransport.h"

namespace zorvane {

struct CurlTransportOptions {
  std::chrono::milliseconds connectTimeout{10'000};
  // From the moment a request is sent to the last byte of its answer; waiting for its turn does not count.
  std::chrono::milliseconds totalTimeout{60'000};
  // A longer answer is an error.
  std::size_t maxAnswerBytes = 1 << 20;
  // Certificates to trust in place of the system's: a file in PEM form. Empty: the system's.
  std::string certificateFile;
};

// Has one thread of its own. On it run makeBody and the completions, without a lock held; what they throw costs only
// their own request. At most six requests are under way, over connections that are reused.
//
// Certificates and the host's name in them are verified, over TLS 1.2 or later. Redirects are not followed: a 3xx is
// the answer. Only http and https are spoken. A connection that turns out to have been closed while it was idle is
// replaced, and the request sent again.
//
// The process may exit at any moment, requests under way or not.
class CurlTransport final : public NetworkTransport {
 public:
  // Throws std::runtime_error if libcurl cannot be set up, std::system_error if there is no thread to be had.
  explicit CurlTransport(CurlTransportOptions options = {});
  // Requests that have no answer yet get the error "the transport was closed". Returns after the last completion,
  // unless a completion is what destroys the transport.
  ~CurlTransport() override;
  CurlTransport(const CurlTransport&) = delete;
  CurlTransport& operator=(const CurlTransport&) = delete;

  // Any thread, completions included.
  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override;

  // Requests taken over whose completion has not returned yet. Any thread.
  std::size_t outstanding() const;
  // Returns when there is none. Not from a completion.
  void waitUntilIdle() const;

 private:
  class Driver;
  const std::shared_ptr<Driver> driver_;
  std::thread thread_;
};

}  // namespace zorvane
