// The report-add request: one batch as the service takes it.
#pragma once

#include <cstddef>
#include <functional>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// The body for a batch with so many events (docs/formats.md). Mirrors the user's identifiers into the application
// group's defaults.
Dictionary reportAddBody(const Dictionary& batchInfo, std::size_t eventCount);

// Builds, signs and starts the request. The completion is called once, on a thread of the core's choosing. False, with
// two log lines, when there is no application identifier: nothing is sent and the completion is not called.
bool sendReport(const Dictionary& batchInfo, std::size_t eventCount, std::function<void(bool success)> completion);

}  // namespace zorvane
