// The report-add request: one batch as the service takes it.
#pragma once

#include "ZRAnalytics/EventManagement/ZRBatchFile.h"
#include "ZorvaneCore/ZRCoreTypes.h"
#include "ZorvaneCore/ZRNetworkRequest.h"

namespace zorvane {

// The parts of a batch that is not stored: "events" and so on.
ZRBatchParts partsOfBatch(const Dictionary& batch, std::size_t eventCount);

// The body of a batch (docs/formats.md). Mirrors the user's identifiers into the application group's defaults.
Dictionary reportAddBody(ZRBatchParts&& batch);

// Builds, signs and starts the request. The completion is called once, on a thread of the core's choosing. False, with
// two log lines, when there is no application identifier: nothing is sent and the completion is not called.
bool sendReport(ZRBatchParts&& batch, ZRNetworkRequest::Completion completion);

}  // namespace zorvane
