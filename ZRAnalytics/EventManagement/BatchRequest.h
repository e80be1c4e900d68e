// One report-add request, ready to be sent. Internal to the events handler.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRNetworkRequest.h"

namespace zorvane {

struct ZREventsHandler::BatchRequest {
  Dictionary body;
  // Holds the request identifier where there is one.
  Dictionary headers;

  // The completion is called once, on a thread of the core's choosing.
  void execute(const std::string& appID, std::function<void(bool success)> completion) && {
    ZRNetworkRequest::initWithServiceParamsAdditionalHeadersRequestBodyAndAdditionalPathComponent(
        kServiceReportAdd, {}, headers, std::move(body), appID)
        ->executeRequestWithCompletionBlock(
            [completion = std::move(completion)](bool success, const Value&) { completion(success); });
  }
};

// The time of a request or batch: now, ISO 8601 with milliseconds, GMT. Nil when the clock stands beyond any date.
Value requestTimeNow();

}  // namespace zorvane
