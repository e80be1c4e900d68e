// Signed requests to the collection service, for reports and for device registration.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ZorvaneCore/ZRCoreTypes.h"
#include "ZorvaneCore/ZRNetworkRequest.h"

namespace zorvane {

// The time of a request or batch: now, ISO 8601 with milliseconds, GMT. Nil when the clock is outside the years 1 to
// 9999.
Value requestTimeNow();

// The request, with its signature under "ZRV-REQUEST-ID" where the body has what is signed
// (ZRAnalyticsUtils::getRequestIDForPayload). Service: kServiceDeviceAdd or kServiceReportAdd.
std::shared_ptr<ZRNetworkRequest> signedRequest(std::int64_t service, Dictionary body, std::string appID);

}  // namespace zorvane
