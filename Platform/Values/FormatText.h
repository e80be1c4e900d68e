#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "Platform/Values/Value.h"

namespace zorvane::platform {

// The pattern with each placeholder ("%@", "%ld", "%f") replaced by the next argument, and "%%" by a percent sign. An
// argument's text is never read as a pattern. A placeholder without an argument stays as it is.
std::string formatText(std::string_view pattern, std::initializer_list<Value> arguments);

}  // namespace zorvane::platform
