// Carries requests to the service. The host provides an implementation.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace zorvane {

// POST with a JSON body in UTF-8. The transport sets the content type.
struct TransportRequest {
  // With its query.
  std::string url;
  // Names and values, beside the content type.
  std::vector<std::pair<std::string, std::string>> headers;
  // Makes the body. Called once, just before the request is sent, so that waiting requests hold no bodies. May throw,
  // for instance when the events were cleared: then do not send the request, and call its completion with status 0.
  std::function<std::string()> makeBody;
};

// What came back.
struct TransportResponse {
  // The HTTP status; 0 if no response came, and then error says why.
  int status = 0;
  // May be empty.
  std::string body;
  // Why no response came.
  std::string error;
};

// Implemented by the host.
class NetworkTransport {
 public:
  virtual ~NetworkTransport() = default;
  // Takes ownership of the request and returns. The completion is called once, on any thread. At most six connections
  // per host are open at a time, and are reused; further requests wait in order.
  virtual void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) = 0;
};

}  // namespace zorvane
