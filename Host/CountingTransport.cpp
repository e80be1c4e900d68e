#include "Host/CountingTransport.h"

#include <utility>

namespace zorvane::host {

CountingTransport::CountingTransport(std::shared_ptr<NetworkTransport> transport) : transport_(std::move(transport)) {}

void CountingTransport::send(TransportRequest request, std::function<void(const TransportResponse&)> completion) {
  {
    const std::lock_guard lock(mutex_);
    ++counts_.started;
  }
  std::string url = request.url;
  transport_->send(std::move(request),
                   [this, url = std::move(url), completion = std::move(completion)](const TransportResponse& response) {
                     // Counts the request even if the completion throws.
                     struct Answered {
                       CountingTransport& self;
                       const std::string& url;
                       const TransportResponse& response;
                       ~Answered() { self.requestAnswered(url, response); }
                     } answered{*this, url, response};
                     if (completion) completion(response);
                   });
}

void CountingTransport::requestAnswered(const std::string& url, const TransportResponse& response) {
  const std::lock_guard lock(mutex_);
  ++counts_.answered;
  if (response.status < 200 || response.status > 299) {
    ++counts_.failed;
    counts_.lastFailure =
        url + ": " + (response.status == 0 ? response.error : "HTTP status " + std::to_string(response.status));
  }
  if (counts_.answered == counts_.started) answered_.notify_all();
}

void CountingTransport::waitUntilAnswered() {
  std::unique_lock lock(mutex_);
  answered_.wait(lock, [this] { return counts_.answered == counts_.started; });
}

CountingTransport::Counts CountingTransport::counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
}

}  // namespace zorvane::host
