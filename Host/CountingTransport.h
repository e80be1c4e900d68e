// Counts requests and responses, and waits for the last response.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "ZorvaneCore/NetworkTransport.h"

namespace zorvane::host {

// Forwards to another transport. Thread-safe.
class CountingTransport final : public NetworkTransport {
 public:
  struct Counts {
    std::uint64_t started = 0;
    std::uint64_t answered = 0;
    // Without a 2xx status, and why the last of them failed.
    std::uint64_t failed = 0;
    std::string lastFailure;
  };

  explicit CountingTransport(std::shared_ptr<NetworkTransport> transport);
  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override;

  // Returns when every request has its response and every completion has returned.
  void waitUntilAnswered();
  Counts counts() const;

 private:
  void requestAnswered(const std::string& url, const TransportResponse& response);

  const std::shared_ptr<NetworkTransport> transport_;
  mutable std::mutex mutex_;
  std::condition_variable answered_;
  Counts counts_;
};

}  // namespace zorvane::host
