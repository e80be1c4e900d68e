#include "ZRAnalytics/Utils/ZRSignedRequest.h"

#include <utility>

#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZorvaneCore/ZRDateUtils.h"

namespace zorvane {

Value requestTimeNow() {
  const auto text = ZRDateUtils::getStringForDateWithFormatAndForGMTTimeZone(platform::hostServices().clock->now(),
                                                                             kZRDateFormatISO8601MilliSec, true);
  return text ? Value(*text) : Value();
}

std::shared_ptr<ZRNetworkRequest> signedRequest(std::int64_t service, Dictionary body, std::string appID) {
  Dictionary headers;
  if (auto requestID = ZRAnalyticsUtils::getRequestIDForPayload(&body)) {
    headers.set(kReportsAPIHeaderKeyRequestID, *std::move(requestID));
  }
  return ZRNetworkRequest::initWithServiceParamsAdditionalHeadersRequestBodyAndAdditionalPathComponent(
      service, {}, headers, std::move(body), std::move(appID));
}

}  // namespace zorvane
