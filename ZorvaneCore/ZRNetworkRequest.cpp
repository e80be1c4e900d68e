#include "ZorvaneCore/ZRNetworkRequest.h"

#include <optional>
#include <utility>

#include "Platform/Formats/JSON.h"
#include "Platform/HostServices.h"
#include "Platform/Text/Ascii.h"
#include "Platform/Text/Hex.h"
#include "ZorvaneCore/RemoteConfiguration.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"

namespace zorvane {
namespace {

// Drops an exception of the host's function.
template <typename Function, typename... Arguments>
void callGuarded(const Function& function, const Arguments&... arguments) noexcept {
  if (!function) return;
  try {
    function(arguments...);
  } catch (...) {
  }
}

void appendPercentEncoded(std::string_view text, std::string& out) {
  for (const char character : text) {
    if (platform::isAsciiLetter(character) || platform::isAsciiDigit(character) || character == '-' ||
        character == '.' || character == '_' || character == '~') {
      out += character;
    } else {
      const auto byte = static_cast<unsigned char>(character);
      out += '%';
      platform::appendHex(out, {&byte, 1}, platform::kUpperHexDigits);
    }
  }
}

std::string urlOf(const std::string& endpoint, std::int64_t service, const std::string& pathComponent,
                  const Dictionary& params) {
  std::string url = endpoint;
  url += service == kServiceDeviceAdd ? "/v1/device/" : "/v1/report/";
  appendPercentEncoded(pathComponent, url);
  char separator = '?';
  for (const auto& [key, value] : params) {
    url += std::exchange(separator, '&');
    appendPercentEncoded(key, url);
    url += '=';
    appendPercentEncoded(value.description(), url);
  }
  return url;
}

}  // namespace

std::shared_ptr<ZRNetworkRequest>
ZRNetworkRequest::initWithServiceParamsAdditionalHeadersRequestBodyAndAdditionalPathComponent(
    std::int64_t service, const Dictionary& params, const Dictionary& additionalHeaders, Dictionary requestBody,
    std::string additionalPathComponent) {
  std::shared_ptr<ZRNetworkRequest> request(new ZRNetworkRequest);
  request->service_ = service;
  request->params_ = params;
  request->headers_ = additionalHeaders;
  request->body_ = std::move(requestBody);
  request->pathComponent_ = std::move(additionalPathComponent);
  return request;
}

void ZRNetworkRequest::executeRequestWithCompletionBlock(Completion completion) {
  const auto setup = CoreState::shared().setup();
  std::optional<std::string> bid;
  if (setup->willSendRequest || setup->didReceiveResponse) {
    const Value value = validObjectForKeyPath(body_, "meta.bid");
    if (!value.isNil()) bid = value.description();
  }
  callGuarded(setup->willSendRequest, service_, bid);

  auto deliver = [setup, service = service_, bid,
                  completion = std::move(completion)](const TransportResponse& response) {
    const bool success = response.status >= 200 && response.status < 300;
    callGuarded(setup->didReceiveResponse, service, bid, success);
    Value answer;
    if (!response.body.empty()) {
      auto parsed = platform::parseJSON(response.body);
      if (parsed) answer = std::move(parsed).value();
    }
    callGuarded(completion, success, answer);
  };

  if (!setup->transport || setup->endpoint.empty()) {
    platform::hostServices().scheduler->globalQueue(platform::Priority::Default).async([deliver = std::move(deliver)] {
      deliver(TransportResponse{0, {}, "no transport or no endpoint is configured"});
    });
    return;
  }
  TransportRequest request;
  request.url = urlOf(setup->endpoint, service_, pathComponent_, params_);
  for (const auto& [name, value] : headers_) request.headers.emplace_back(name, value.description());
  request.makeBody = [body = Value(std::move(body_))] { return platform::jsonText(body); };
  setup->transport->send(std::move(request), std::move(deliver));
}

}  // namespace zorvane
