#pragma once

#include <string_view>

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// The XML encoding of property lists, in UTF-8, UTF-16, ASCII or Latin-1.
Result<Value> parseXMLPropertyList(std::string_view bytes);

}  // namespace zorvane::platform
