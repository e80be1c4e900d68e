// What the parts of the events handler share; not for users of the module.
#pragma once

#include <string_view>

namespace zorvane::eventshandler {

// The source file in error reports.
inline constexpr char kFile[] = "ZREventsHandler";

}  // namespace zorvane::eventshandler
