// The report-add request: one batch as the service takes it.
#pragma once

#include <cstddef>
#include <functional>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// The body of a batch (docs/formats.md). The count is passed because the events may not be decoded yet. Mirrors the
// user's identifiers into the application group's defaults.
Dictionary reportAddBody(const Dictionary& batchInfo, std::size_t eventCount);

// Builds, signs and starts the request. The completion is called once, on a thread of the core's choosing. False, with
// two log lines, when there is no application identifier: nothing is sent and the completion is not called.
bool sendReport(const Dictionary& batchInfo, std::size_t eventCount, std::function<void(bool success)> completion);

}  // namespace zorvane
