// A log sink for programs in a terminal.
#pragma once

#include <memory>

#include "Platform/Export.h"
#include "ZorvaneCore/ZRLogger.h"

namespace zorvane {

// Writes each message to standard error in one piece: "ZRAnalytics: MESSAGE", or
// "ZRAnalytics: error: MESSAGE (OPERATION in FILE:LINE)" and the call stack below it. Control characters but line
// breaks and tabs are written as "\x1B". What cannot be written is dropped.
ZR_PUBLIC std::shared_ptr<ZRLogSink> makeStandardErrorLog();

}  // namespace zorvane
