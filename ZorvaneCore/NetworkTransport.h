// What carries a request to the service; plugged in by the host.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace zorvane {

// POST with a JSON body in UTF-8; the transport says so in the content type.
struct TransportRequest {
  std::string url;
  std::vector<std::pair<std::string, std::string>> headers;
  // Makes the body. Called once, when the request's turn to be sent comes, so that waiting requests hold no bodies.
  std::function<std::string()> makeBody;
};

struct TransportResponse {
  // The HTTP status; 0 when no answer came, and then error says why.
  int status = 0;
  std::string body;
  std::string error;
};

class NetworkTransport {
 public:
  virtual ~NetworkTransport() = default;
  // Takes the request over and returns. The completion is called once, from any thread. At most six connections to a
  // host are open at a time, and reused; requests beyond wait their turn, first come first served.
  virtual void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) = 0;
};

}  // namespace zorvane
