// One request to the collection service.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// POST {endpoint}/v1/device/{path component} (service 1) or {endpoint}/v1/report/{path component} (service 2), JSON in
// UTF-8.
class ZRNetworkRequest {
 public:
  // Success means status 2xx. The response is the parsed JSON body, or nil.
  using Completion = std::function<void(bool success, const Value& response)>;

  static std::shared_ptr<ZRNetworkRequest> initWithServiceParamsAdditionalHeadersRequestBodyAndAdditionalPathComponent(
      std::int64_t service, const Dictionary& params, const Dictionary& additionalHeaders, Dictionary requestBody,
      std::string additionalPathComponent);

  // Call once. Passes the request to the transport and returns; the body is encoded when the request is sent. The
  // completion is called once, on the transport's thread. Without a transport or an endpoint it reports a failure, on a
  // global queue.
  void executeRequestWithCompletionBlock(Completion completion);

 private:
  ZRNetworkRequest() = default;

  std::int64_t service_ = 0;
  Dictionary params_;
  Dictionary headers_;
  Dictionary body_;
  std::string pathComponent_;
};

}  // namespace zorvane
