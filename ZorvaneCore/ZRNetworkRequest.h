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
  // Success is a 2xx answer. The response is the answer's JSON, or nil.
  using Completion = std::function<void(bool success, const Value& response)>;

  static std::shared_ptr<ZRNetworkRequest> initWithServiceParamsAdditionalHeadersRequestBodyAndAdditionalPathComponent(
      std::int64_t service, const Dictionary& params, const Dictionary& additionalHeaders, Dictionary requestBody,
      std::string additionalPathComponent);

  // Once. Hands the request to the transport and returns; the body is encoded when its turn to be sent comes. The
  // completion is called once, on a thread of the core's choosing; without a transport or an endpoint the answer is a
  // failure.
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
