// Dates that hosts give as ISO 8601 text.
#pragma once

#include <optional>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Parses "yyyy-MM-dd'T'HH:mm:ss'Z'", with or without ".SSS", in UTC; absent for any other text. Throws ValueError if
// the value is no text.
std::optional<Date> dateOfISOText(const Value& text);

}  // namespace zorvane
